// Registry reader/writer on HKEY_LOCAL_MACHINE, as the product's settings code
// uses it. A value of the wrong type counts as absent.
#pragma once
#include <vector>
#include <skclass_mini/export.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/strings.h>

class SKCLASS_API Configuration {
public:
    enum OpenMode { OpenExisting = 0, OpenOrCreate = 1 };
    enum Access { Read = 1, Write = 2, ReadWrite = 3 };

    Configuration() = default;
    ~Configuration() = default;  // closes the key
    Configuration(const Configuration &) = delete;
    Configuration &operator=(const Configuration &) = delete;

    // Opens HKLM\key, or HKLM\key\secondName when secondName is not empty.
    // access is a mask of Access bits; a ReadWrite open that is denied write
    // access falls back to read-only. Returns false (GetLastError() set) when
    // the key cannot be opened.
    bool Open(int openMode, const wcstring &key, const wcstring &secondName, unsigned access);
    bool IsOpen() const { return static_cast<bool>(key_); }
    void Close() { key_.reset(); }

    // Each Load returns false and leaves value untouched when the value is
    // missing or of another type.
    bool Load(const wcstring &name, wcstring &value) const;                // REG_SZ / REG_EXPAND_SZ
    bool LoadDWORD(const wcstring &name, unsigned long &value) const;      // REG_DWORD
    bool LoadMultiString(const wcstring &name, std::vector<wcstring> &values) const;  // REG_MULTI_SZ
    wcstring Load(const wcstring &name, const wcstring &defaultValue) const;
    // The default is taken by const reference so that LoadDWORD(name, variable)
    // picks the bool form above and LoadDWORD(name, 5ul) this one (by value both
    // would be equally good for an lvalue: an ambiguous call).
    unsigned long LoadDWORD(const wcstring &name, const unsigned long &defaultValue) const;

    bool Save(const wcstring &name, const wcstring &value);
    bool SaveDWORD(const wcstring &name, unsigned long value);
    bool SaveMultiString(const wcstring &name, const std::vector<wcstring> &values);
    bool Delete(const wcstring &name);

private:
    skclass::UniqueHkey key_;
};
