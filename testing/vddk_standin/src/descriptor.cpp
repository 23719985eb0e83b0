// Pure text handling, no Windows: it builds natively too, for fuzzing.
#include "descriptor.h"

#include <stdio.h>
#include <stdlib.h>

#include <sstream>

// The adapter names map VDDK's adapter codes, whose header holds Windows
// layouts; the native fuzzing build (VDDKSIM_TEXT_ONLY) leaves them out.
#ifndef VDDKSIM_TEXT_ONLY
#include <vmware/vddk_api.h>
#endif

namespace vddksim {
namespace {

// The blanks the extent fields' >> skips, all of them: a line that trimmed
// to something else could start "#" only once written back, a comment then.
constexpr char kBlanks[] = " \t\r\n\v\f";

std::string Trim(const std::string &s) {
    size_t b = s.find_first_not_of(kBlanks);
    if (b == std::string::npos) return std::string();
    size_t e = s.find_last_not_of(kBlanks);
    return s.substr(b, e - b + 1);
}

std::string Unquote(const std::string &s) {
    std::string t = Trim(s);
    if (t.size() >= 2 && t.front() == '"' && t.back() == '"') return t.substr(1, t.size() - 2);
    return t;
}

bool ParseHex32(const std::string &s, uint32_t *out) {
    std::string t = Trim(s);
    if (t.empty() || t.size() > 8) return false;
    char *end = nullptr;
    unsigned long v = strtoul(t.c_str(), &end, 16);
    if (*end != '\0') return false;
    *out = uint32_t(v);
    return true;
}

// Strict decimal up to kMaxDiskSectors: no sign, no wrap, nothing after it.
bool ParseSectors(const std::string &text, uint64_t *out) {
    if (text.empty() || text.size() > 20) return false;
    uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + uint64_t(c - '0');
        if (value > kMaxDiskSectors) return false;
    }
    *out = value;
    return true;
}

bool ParseExtent(const std::string &line, ExtentLine *e) {
    std::istringstream in(line);
    std::string sectors;
    if (!(in >> e->access >> sectors >> e->type) || !ParseSectors(sectors, &e->sectors)) return false;
    std::string rest;
    std::getline(in, rest);
    rest = Trim(rest);
    if (e->type == "ZERO") return true;
    if (rest.empty() || rest[0] != '"') return false;
    size_t close = rest.find('"', 1);
    if (close == std::string::npos) return false;
    e->file = rest.substr(1, close - 1);
    std::string tail = Trim(rest.substr(close + 1));
    if (!tail.empty()) {
        if (!ParseSectors(tail, &e->offset)) return false;
    } else if (e->type == "FLAT") {
        return false;  // qemu: "Invalid extent line"
    }
    return true;
}

bool ParseLine(const std::string &line, Descriptor *d, bool *sawVersion) {
    if (line.empty() || line[0] == '#') return true;
    size_t eq = line.find('=');
    if (eq == std::string::npos) {
        ExtentLine e;
        if (!ParseExtent(line, &e)) return false;
        d->extents.push_back(e);
        return true;
    }
    std::string key = Trim(line.substr(0, eq)), value = line.substr(eq + 1);
    if (key == "version") *sawVersion = true;
    else if (key == "CID") return ParseHex32(value, &d->cid);
    else if (key == "parentCID") return ParseHex32(value, &d->parentCid);
    else if (key == "createType") d->createType = Unquote(value);
    else if (key == "parentFileNameHint") d->parentHint = Unquote(value);
    else if (key.compare(0, 4, "ddb.") == 0) d->ddb.emplace_back(key.substr(4), Unquote(value));
    return true;
}

}  // namespace

const std::string *Descriptor::Find(const std::string &key) const {
    for (const auto &kv : ddb)
        if (kv.first == key) return &kv.second;
    return nullptr;
}

void Descriptor::Set(const std::string &key, const std::string &value) {
    for (auto &kv : ddb)
        if (kv.first == key) {
            kv.second = value;
            return;
        }
    ddb.emplace_back(key, value);
}

uint64_t Descriptor::ExtentSectors() const {
    uint64_t total = 0;
    for (const auto &e : extents) total += e.sectors;
    return total;
}

bool ParseDescriptor(const std::string &text, Descriptor *out) {
    Descriptor d;
    bool sawVersion = false;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (!ParseLine(Trim(line), &d, &sawVersion)) return false;
    }
    if (!sawVersion) return false;
    uint64_t total = 0;
    for (const ExtentLine &e : d.extents) {
        total += e.sectors;  // each at most kMaxDiskSectors: no wrap
        if (total > kMaxDiskSectors || e.offset > kMaxDiskSectors - e.sectors) return false;
    }
    *out = d;
    return true;
}

std::string SerializeDescriptor(const Descriptor &d) {
    char num[32];
    std::string s = "# Disk DescriptorFile\nversion=1\n";
    snprintf(num, sizeof num, "%x", d.cid);
    s += std::string("CID=") + num + "\n";
    snprintf(num, sizeof num, "%x", d.parentCid);
    s += std::string("parentCID=") + num + "\n";
    s += "createType=\"" + d.createType + "\"\n";
    s += d.parentHint.empty() ? "\n" : "parentFileNameHint=\"" + d.parentHint + "\"\n";
    s += "# Extent description\n";
    for (const auto &e : d.extents) {
        s += e.access + " " + std::to_string(e.sectors) + " " + e.type;
        if (e.type != "ZERO") s += " \"" + e.file + "\"";
        if (e.type == "FLAT") s += " " + std::to_string(e.offset);
        s += "\n";
    }
    s += "\n# The Disk Data Base\n#DDB\n\n";
    for (const auto &kv : d.ddb) s += "ddb." + kv.first + " = \"" + kv.second + "\"\n";
    return s;
}

#ifndef VDDKSIM_TEXT_ONLY
std::string AdapterName(int adapterType) {
    switch (adapterType) {
    case VIXDISKLIB_ADAPTER_SCSI_BUSLOGIC: return "buslogic";
    case VIXDISKLIB_ADAPTER_SCSI_LSILOGIC: return "lsilogic";
    default: return "ide";
    }
}

int AdapterFromName(const std::string &name) {
    if (name == "ide") return VIXDISKLIB_ADAPTER_IDE;
    if (name == "buslogic") return VIXDISKLIB_ADAPTER_SCSI_BUSLOGIC;
    if (name == "lsilogic" || name == "legacyESX") return VIXDISKLIB_ADAPTER_SCSI_LSILOGIC;
    return VIXDISKLIB_ADAPTER_UNKNOWN;
}

#endif

void SetDefaultDdb(Descriptor *d, uint64_t capacity, const std::string &adapter, int hwVersion) {
    const uint64_t heads = adapter == "ide" ? 16 : 255;
    d->ddb.clear();
    d->Set("virtualHWVersion", std::to_string(hwVersion > 0 ? hwVersion : 4));
    d->Set("geometry.cylinders", std::to_string(capacity / (63 * heads)));
    d->Set("geometry.heads", std::to_string(heads));
    d->Set("geometry.sectors", "63");
    d->Set("adapterType", adapter);
    d->Set("toolsVersion", "2147483647");
}

}  // namespace vddksim
