// Checks the tool's unit tests share: what a failing call said, and whether a
// text holds a part (printing both when it does not).
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "errors.h"

namespace tooltest {

// The message of the Error (a ToolError) call throws; "" when it throws none.
template <class Error = dbtool::ToolError, class Call>
std::wstring ErrorOf(Call &&call) {
    try {
        call();
    } catch (const Error &e) {
        return e.Message();
    }
    return L"";
}

template <class Text>
::testing::AssertionResult Holds(const Text &text, const Text &part) {
    if (text.find(part) != Text::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "'" << text << "' does not hold '" << part << "'";
}
inline ::testing::AssertionResult Holds(const std::wstring &text, const wchar_t *part) {
    return Holds(text, std::wstring(part));
}
inline ::testing::AssertionResult Holds(const std::string &text, const char *part) {
    return Holds(text, std::string(part));
}

}  // namespace tooltest
