// SHA-256 (FIPS 180-4), incremental. Our own because no crypto library is
// available to the mingw build; it is checked against the standard's vectors.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include <array>
#include <string>

namespace dbtool {

class Sha256 {
public:
    using Digest = std::array<uint8_t, 32>;

    Sha256() { Reset(); }
    void Reset();
    void Update(const void *data, size_t length);
    // Finishes and returns the digest; the object is then reset.
    Digest Finish();
    // Lower-case hex of Finish().
    std::wstring FinishHex();

    static std::wstring Hex(const Digest &digest);
    static std::wstring Of(const void *data, size_t length);

private:
    void Block(const uint8_t *block);

    uint32_t state_[8];
    uint8_t pending_[64];
    size_t pendingLength_;
    uint64_t totalLength_;
};

}  // namespace dbtool
