// Builds and tears down registry sandboxes in a loop, as a test process under
// ctest -j does, and exits with the number of sandboxes that failed (capped).
#include <cstdio>
#include <cwchar>
#include <dbtest/registry_sandbox.h>

int wmain(int argc, wchar_t **argv) {
    const long rounds = argc > 1 ? std::wcstol(argv[1], nullptr, 10) : 100;
    int failures = 0;
    for (long round = 0; round < rounds; ++round) {
        dbtest::RegistrySandbox sandbox;
        if (!sandbox.Ok() || sandbox.SetDword(L"Software\\Churn", L"Round", DWORD(round)) != ERROR_SUCCESS) {
            if (failures == 0) std::printf("round %ld: %s\n", round, sandbox.Error().c_str());
            if (++failures == 100) break;
        }
    }
    return failures;
}
