// SHA-256 through Windows' CNG (BCrypt), incremental. CNG ships with Windows
// and uses the processor's SHA instructions where there are any; it is
// checked against the standard's vectors.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include <array>
#include <string>

namespace dbtool {

class Sha256 {
public:
    using Digest = std::array<uint8_t, 32>;

    // Throws Failure when CNG cannot make a hash object.
    Sha256();
    ~Sha256();
    Sha256(const Sha256 &) = delete;
    Sha256 &operator=(const Sha256 &) = delete;

    void Reset();
    void Update(const void *data, size_t length);
    // Finishes and returns the digest; the object is then reset.
    Digest Finish();
    // Lower-case hex of Finish().
    std::wstring FinishHex();

    static std::wstring Hex(const Digest &digest);
    static std::wstring Of(const void *data, size_t length);
    // Opens CNG's SHA-256 provider for the process. Called before anything
    // redirects HKEY_LOCAL_MACHINE, which Windows reads to find providers.
    static void Prepare();

private:
    void *hash_ = nullptr;  // BCRYPT_HASH_HANDLE
};

}  // namespace dbtool
