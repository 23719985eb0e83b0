// SHA-256 against FIPS 180-4 / NIST vectors and hashlib, across every split of
// the input (the block-boundary bookkeeping is where such code goes wrong).
#include <string>

#include <gtest/gtest.h>

#include "sha256.h"

namespace {

using dbtool::Sha256;

std::wstring Of(const std::string &text) { return Sha256::Of(text.data(), text.size()); }

// The NIST vectors, then lengths around the padding boundary (55/56, 120) and
// the block size (64).
TEST(Sha256, StandardVectorsAndPaddingBoundaries) {
    const struct {
        std::string text;
        const wchar_t *digest;
    } cases[] = {
        {"", L"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         L"248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrs"
         "tnopqrstu",
         L"cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1"},
        {std::string(55, 'a'), L"9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
        {std::string(56, 'a'), L"b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"},
        {std::string(64, 'a'), L"ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
        {std::string(120, 'a'), L"2f3d335432c70b580af0e8e1b3674a7c020d683aa5f73aaaedfdc55af904c21c"},
    };
    for (const auto &c : cases) EXPECT_EQ(Of(c.text), c.digest) << "length " << c.text.size();
}

TEST(Sha256, EverySplitGivesTheSameDigest) {
    const std::wstring whole = L"41edece42d63e8d9bf515a9ba6932e1c20cbc9f5a5d134645adb5db1b9737ea3";  // 1000 'a'
    const std::string text(1000, 'a');
    Sha256 sha;  // one for every split: Finish must leave it fresh for the next message
    for (size_t first = 0; first <= 200; ++first) {
        sha.Update(text.data(), first);
        for (size_t at = first; at < text.size(); at += 37) sha.Update(text.data() + at, std::min<size_t>(37, text.size() - at));
        ASSERT_EQ(sha.FinishHex(), whole) << "first piece " << first;
    }
}

}  // namespace
