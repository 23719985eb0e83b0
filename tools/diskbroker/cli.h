// Command-line words of one command: positional arguments and "--name value"
// or "--name=value" options, checked against what the command accepts.
#pragma once
#include <stdint.h>

#include <initializer_list>
#include <map>
#include <string>
#include <vector>

namespace dbtool {

struct OptionSpec {
    const wchar_t *name;  // without the leading "--"
    bool takesValue;
};

class Args {
public:
    // Throws UsageError for an unknown option, a missing option value, or a
    // count of positional arguments outside [minPositional, maxPositional].
    // "--help" / "-h" anywhere only sets HelpRequested (nothing else is checked).
    Args(const std::vector<std::wstring> &words, const std::vector<OptionSpec> &options, size_t minPositional,
         size_t maxPositional);

    bool HelpRequested() const { return help_; }
    const std::vector<std::wstring> &Positional() const { return positional_; }
    const std::wstring &Positional(size_t index) const { return positional_.at(index); }
    bool Has(const std::wstring &name) const { return values_.count(name) != 0; }
    std::wstring Value(const std::wstring &name, const std::wstring &fallback = std::wstring()) const;
    // A whole decimal number in [minimum, maximum]; UsageError otherwise.
    uint64_t Number(const std::wstring &name, uint64_t fallback, uint64_t minimum, uint64_t maximum) const;
    // The value, which must be one of `allowed`.
    std::wstring Choice(const std::wstring &name, const std::wstring &fallback,
                        std::initializer_list<const wchar_t *> allowed) const;

private:
    bool help_ = false;
    std::vector<std::wstring> positional_;
    std::map<std::wstring, std::wstring> values_;
};

}  // namespace dbtool
