#include "sha256.h"

#include <skclass_mini/win.h>

#include <bcrypt.h>

#include "errors.h"

namespace dbtool {
namespace {

// BCryptHashData takes a 32-bit length.
constexpr size_t kMaxStep = 1u << 30;

void Check(NTSTATUS status, const wchar_t *what) {
    if (status < 0)
        throw Failure(std::wstring(L"SHA-256 (CNG): ") + what + L" failed, status " +
                      std::to_wstring(static_cast<unsigned long>(status)));
}

// The provider for the whole process, opened once; closed at exit.
class Provider {
public:
    Provider() { Check(BCryptOpenAlgorithmProvider(&handle_, BCRYPT_SHA256_ALGORITHM, nullptr, 0), L"opening the provider"); }
    ~Provider() { BCryptCloseAlgorithmProvider(handle_, 0); }
    Provider(const Provider &) = delete;
    Provider &operator=(const Provider &) = delete;
    BCRYPT_ALG_HANDLE Get() const { return handle_; }

private:
    BCRYPT_ALG_HANDLE handle_ = nullptr;
};

BCRYPT_ALG_HANDLE Algorithm() {
    static const Provider provider;
    return provider.Get();
}

}  // namespace

void Sha256::Prepare() { Algorithm(); }

Sha256::Sha256() { Reset(); }

Sha256::~Sha256() {
    if (hash_) BCryptDestroyHash(static_cast<BCRYPT_HASH_HANDLE>(hash_));
}

void Sha256::Reset() {
    BCRYPT_HASH_HANDLE fresh = nullptr;
    // CNG keeps the hash object itself when given no buffer (Windows 7 on).
    Check(BCryptCreateHash(Algorithm(), &fresh, nullptr, 0, nullptr, 0, 0), L"creating a hash");
    if (hash_) BCryptDestroyHash(static_cast<BCRYPT_HASH_HANDLE>(hash_));
    hash_ = fresh;
}

void Sha256::Update(const void *data, size_t length) {
    auto bytes = static_cast<PUCHAR>(const_cast<void *>(data));
    while (length > 0) {
        const ULONG step = static_cast<ULONG>(length < kMaxStep ? length : kMaxStep);
        Check(BCryptHashData(static_cast<BCRYPT_HASH_HANDLE>(hash_), bytes, step, 0), L"hashing");
        bytes += step, length -= step;
    }
}

Sha256::Digest Sha256::Finish() {
    Digest digest{};
    Check(BCryptFinishHash(static_cast<BCRYPT_HASH_HANDLE>(hash_), digest.data(), static_cast<ULONG>(digest.size()), 0),
          L"finishing");
    Reset();
    return digest;
}

std::wstring Sha256::FinishHex() { return Hex(Finish()); }

std::wstring Sha256::Hex(const Digest &digest) {
    static const wchar_t digits[] = L"0123456789abcdef";
    std::wstring text;
    for (uint8_t byte : digest) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::wstring Sha256::Of(const void *data, size_t length) {
    Sha256 sha;
    sha.Update(data, length);
    return sha.FinishHex();
}

}  // namespace dbtool
