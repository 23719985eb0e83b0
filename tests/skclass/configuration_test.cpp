#include <gtest/gtest.h>

#include <dbtest/registry_sandbox.h>
#include <skclass_mini/configuration.h>

namespace {

const wchar_t kKey[] = L"SOFTWARE\\Halvorn\\Test";

class ConfigurationTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(sandbox.Ok()) << sandbox.Error();
        ASSERT_EQ(sandbox.SetString(kKey, L"Text", L"hello"), ERROR_SUCCESS);
        ASSERT_EQ(sandbox.SetDword(kKey, L"Number", 0x80000000u), ERROR_SUCCESS);
        ASSERT_EQ(sandbox.SetMultiString(kKey, L"List", {L"one", L"two words"}), ERROR_SUCCESS);
        ASSERT_TRUE(config.Open(Configuration::OpenExisting, kKey, L"", Configuration::ReadWrite));
    }
    dbtest::RegistrySandbox sandbox;
    Configuration config;
};

TEST_F(ConfigurationTest, MissingOrWrongTypeValuesCountAsAbsent) {
    ASSERT_EQ(sandbox.SetString(kKey, L"NumberAsText", L"5"), ERROR_SUCCESS);
    wcstring text = L"untouched";
    unsigned long number = 99;
    std::vector<wcstring> list{L"untouched"};
    for (const wchar_t *name : {L"Missing", L"Number", L"List"}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(name)));
        EXPECT_FALSE(config.Load(name, text));
    }
    for (const wchar_t *name : {L"Missing", L"NumberAsText", L"List"}) {
        EXPECT_FALSE(config.LoadDWORD(name, number));
    }
    EXPECT_FALSE(config.LoadMultiString(L"Text", list));
    EXPECT_EQ(text, L"untouched");
    EXPECT_EQ(number, 99ul);
    EXPECT_EQ(list, std::vector<wcstring>{L"untouched"});
    EXPECT_EQ(config.Load(L"Number", L"default"), L"default");
    EXPECT_EQ(config.LoadDWORD(L"NumberAsText", 5ul), 5ul);
}

// Stored without a terminator (RegSetValueEx does not insist on one).
TEST_F(ConfigurationTest, AStringWithoutTerminatorComesBackWhole) {
    ASSERT_EQ(sandbox.SetRaw(kKey, L"Bare", REG_SZ, L"abc", 3 * sizeof(wchar_t)), ERROR_SUCCESS);
    EXPECT_EQ(config.Load(L"Bare", L""), L"abc");
}

TEST_F(ConfigurationTest, MultiStringsRoundTripRefuseEmptyElementsAndReadOddData) {
    const std::vector<wcstring> values{L"C:\\a", L"\u00FCber", L"x"};
    std::vector<wcstring> loaded{L"stale"};
    ASSERT_TRUE(config.SaveMultiString(L"Saved", values));
    ASSERT_TRUE(config.LoadMultiString(L"Saved", loaded));
    EXPECT_EQ(loaded, values);

    SetLastError(0xdeadbeef);
    EXPECT_FALSE(config.SaveMultiString(L"Saved", {L"a", L"", L"b"}));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    ASSERT_TRUE(config.LoadMultiString(L"Saved", loaded));
    EXPECT_EQ(loaded, values);  // the refused save wrote nothing

    // Odd data: no final terminators at all.
    ASSERT_EQ(sandbox.SetRaw(kKey, L"Bare", REG_MULTI_SZ, L"a\0b", 3 * sizeof(wchar_t)), ERROR_SUCCESS);
    ASSERT_TRUE(config.LoadMultiString(L"Bare", loaded));
    EXPECT_EQ(loaded, (std::vector<wcstring>{L"a", L"b"}));
    // Zero bytes.
    ASSERT_EQ(sandbox.SetRaw(kKey, L"Nothing", REG_MULTI_SZ, nullptr, 0), ERROR_SUCCESS);
    ASSERT_TRUE(config.LoadMultiString(L"Nothing", loaded));
    EXPECT_TRUE(loaded.empty());
}

TEST_F(ConfigurationTest, SavesAndDeletesValues) {
    ASSERT_TRUE(config.Save(L"New", L"value"));
    ASSERT_TRUE(config.SaveDWORD(L"NewNumber", 0x80000000ul));  // the top bit survives
    EXPECT_EQ(config.Load(L"New", L""), L"value");
    EXPECT_EQ(config.LoadDWORD(L"NewNumber", 0ul), 0x80000000ul);
    ASSERT_TRUE(config.Delete(L"New"));
    EXPECT_EQ(config.Load(L"New", L"gone"), L"gone");
    config.Close();
    EXPECT_FALSE(config.IsOpen());
    EXPECT_FALSE(config.Save(L"New", L"value"));
}

TEST_F(ConfigurationTest, OpensKeysByMode) {
    Configuration other;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(other.Open(Configuration::OpenExisting, L"SOFTWARE\\Halvorn\\Missing", L"", Configuration::Read));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_FALSE(other.IsOpen());
    ASSERT_TRUE(other.Open(Configuration::OpenOrCreate, L"SOFTWARE\\Halvorn\\Created", L"", Configuration::ReadWrite));
    ASSERT_TRUE(other.SaveDWORD(L"x", 1));
    Configuration reader;
    ASSERT_TRUE(reader.Open(Configuration::OpenExisting, L"SOFTWARE\\Halvorn\\Created", L"", Configuration::Read));
    EXPECT_EQ(reader.LoadDWORD(L"x", 0ul), 1ul);
}

}  // namespace
