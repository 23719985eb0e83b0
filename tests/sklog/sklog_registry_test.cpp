// Where the log goes: the product's "Data Path" from the registry.
#include <string>
#include <gtest/gtest.h>
#include <dbtest/product_keys.h>
#include <dbtest/registry_sandbox.h>
#include <dbtest/temp_dir.h>
#include <skstdutl/sklog.h>

namespace {

using dbtest::kMainMiscKey;
using dbtest::kSiblingMiscKey;

std::wstring CurrentLogPath() {
    wchar_t path[MAX_PATH * 2];
    SK_GetLogFilePath(path, MAX_PATH * 2);
    return path;
}

class SklogRegistry : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(registry.Ok()) << registry.Error();
        ASSERT_FALSE(folder.Path().empty());
        SK_SetLogFilePath(nullptr);  // forget any resolved path: read the sandbox
    }
    void TearDown() override {
        SK_SetLogFilePath(L"");  // close the file before the folder goes
        SK_SetLogFilePath(nullptr);
    }
    dbtest::RegistrySandbox registry;
    dbtest::TempDir folder;
};

// The main product's "Data Path", trailing backslashes stripped; drive C when
// it is missing.
TEST_F(SklogRegistry, DataPathOfTheMainProductOrDriveC) {
    const std::wstring inData = folder.Path() + L"\\Logs\\diskBroker.log";
    EXPECT_EQ(CurrentLogPath(), L"C:\\Logs\\diskBroker.log") << "no value";
    ASSERT_EQ(registry.SetString(kMainMiscKey, L"Data Path", folder.Path() + L"\\\\"), ERROR_SUCCESS);
    ASSERT_EQ(registry.SetString(kSiblingMiscKey, L"Data Path", L"X:\\wrong"), ERROR_SUCCESS);
    SK_SetLogFilePath(nullptr);  // read the registry again
    EXPECT_EQ(CurrentLogPath(), inData) << "the main product's";
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"first line");
    EXPECT_NE(GetFileAttributesW(inData.c_str()), INVALID_FILE_ATTRIBUTES) << "folder and file created";
}

}  // namespace
