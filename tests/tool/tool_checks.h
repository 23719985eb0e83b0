// What the tool's unit tests share: the message a failing call threw, and a
// substring check that prints both texts.
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

inline ::testing::AssertionResult Holds(const std::wstring &text, const std::wstring &part) {
    if (text.find(part) != std::wstring::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "'" << text << "' does not hold '" << part << "'";
}

}  // namespace tooltest
