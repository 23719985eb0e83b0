#include "cli.h"

#include "errors.h"

namespace dbtool {

Args::Args(const std::vector<std::wstring> &words, const std::vector<OptionSpec> &options, size_t minPositional,
           size_t maxPositional) {
    for (const std::wstring &word : words)
        if (word == L"--help" || word == L"-h") help_ = true;
    if (help_) return;
    bool onlyPositional = false;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::wstring &word = words[i];
        if (onlyPositional || word.size() < 2 || word[0] != L'-') {
            positional_.push_back(word);
            continue;
        }
        if (word == L"--") {
            onlyPositional = true;
            continue;
        }
        if (word.compare(0, 2, L"--") != 0) throw UsageError(L"unknown option '" + word + L"'");
        const size_t equals = word.find(L'=');
        const std::wstring name = word.substr(2, equals == std::wstring::npos ? std::wstring::npos : equals - 2);
        const OptionSpec *spec = nullptr;
        for (const OptionSpec &candidate : options)
            if (name == candidate.name) spec = &candidate;
        if (!spec) throw UsageError(L"unknown option '--" + name + L"'");
        if (!spec->takesValue) {
            if (equals != std::wstring::npos) throw UsageError(L"option '--" + name + L"' takes no value");
            values_[name] = L"";
        } else if (equals != std::wstring::npos) {
            values_[name] = word.substr(equals + 1);
        } else if (i + 1 < words.size()) {
            values_[name] = words[++i];
        } else {
            throw UsageError(L"option '--" + name + L"' needs a value");
        }
    }
    if (positional_.size() < minPositional)
        throw UsageError(L"missing argument: " + std::to_wstring(minPositional) + L" expected, " +
                         std::to_wstring(positional_.size()) + L" given");
    if (positional_.size() > maxPositional) throw UsageError(L"unexpected argument '" + positional_[maxPositional] + L"'");
}

std::wstring Args::Value(const std::wstring &name, const std::wstring &fallback) const {
    const auto found = values_.find(name);
    return found == values_.end() ? fallback : found->second;
}

uint64_t Args::Number(const std::wstring &name, uint64_t fallback, uint64_t minimum, uint64_t maximum) const {
    const auto found = values_.find(name);
    if (found == values_.end()) return fallback;
    const std::wstring &text = found->second;
    uint64_t value = 0;
    bool ok = !text.empty() && text.size() <= 19;
    for (wchar_t c : text) {
        if (c < L'0' || c > L'9') ok = false;
        value = value * 10 + static_cast<uint64_t>(c - L'0');
    }
    if (!ok || value < minimum || value > maximum)
        throw UsageError(L"option '--" + name + L"' needs a whole number from " + std::to_wstring(minimum) + L" to " +
                         std::to_wstring(maximum) + L", not '" + text + L"'");
    return value;
}

std::wstring Args::Choice(const std::wstring &name, const std::wstring &fallback,
                          std::initializer_list<const wchar_t *> allowed) const {
    const std::wstring value = Value(name, fallback);
    std::wstring list;
    for (const wchar_t *candidate : allowed) {
        if (value == candidate) return value;
        list += (list.empty() ? L"" : L", ") + std::wstring(candidate);
    }
    throw UsageError(L"option '--" + name + L"' must be one of " + list + L", not '" + value + L"'");
}

}  // namespace dbtool
