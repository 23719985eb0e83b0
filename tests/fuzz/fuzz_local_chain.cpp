// libFuzzer target: the local-chain relinking of a child disk's embedded
// descriptor, on a whole file image. Whatever the bytes: the area is refused
// or lies in the file; a rewrite fills exactly the area and still ends its
// text; the rewritten child names the new parent exactly when it had a parent
// line; and rewriting again changes nothing.
#include <string.h>

#include <string>
#include <vector>

#include "fuzz_target.h"
#include "vmdk_descriptor.h"

namespace {

const std::string kParentCid = "0badc0de";
const std::string kParentPath = "D:\\ancestors\\base.vmdk";

bool HasParentLine(const char *data, size_t size) {
    vmdkdesc::LineReader reader(data, size);
    std::string line, error;
    while (reader.Next(line, error) == vmdkdesc::LineReader::Step::Line)
        if (line.find("parentCID") != std::string::npos) return true;
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < vmdkdesc::kHeaderSize) return 0;
    uint8_t header[vmdkdesc::kHeaderSize];
    memcpy(header, data, sizeof header);
    const vmdkdesc::Area sectors = vmdkdesc::AreaFromHeader(header);
    uint64_t offset = 0;
    size_t areaSize = 0;
    std::string error;
    if (sectors.offsetSectors == 0 || !vmdkdesc::AreaInFile(sectors, size, offset, areaSize, error)) return 0;
    if (offset > size || areaSize > size - offset || areaSize == 0) abort();
    // A copy of exactly the area, so that ASan sees any read beyond it.
    const std::vector<char> area(data + offset, data + offset + areaSize);

    // What GetParentDiskPath and the parent's CID read come from the same bytes.
    std::string hint, cid;
    (void)vmdkdesc::ReadParentHint(area.data(), area.size(), hint, error);
    if (vmdkdesc::ReadCid(area.data(), area.size(), cid, error) && cid.size() > 8) abort();
    std::vector<char> rewritten;
    if (!vmdkdesc::RewriteParentLink(area.data(), area.size(), kParentCid, kParentPath, rewritten, error)) return 0;
    if (rewritten.size() != area.size() || rewritten.back() != '\0') abort();
    if (!vmdkdesc::ReadParentHint(rewritten.data(), rewritten.size(), hint, error)) abort();
    const bool hadParent = HasParentLine(area.data(), area.size());
    if (hint != (hadParent ? kParentPath : std::string())) abort();
    std::vector<char> again;
    if (!vmdkdesc::RewriteParentLink(rewritten.data(), rewritten.size(), kParentCid, kParentPath, again, error)) abort();
    if (again != rewritten) abort();

    const std::wstring name(reinterpret_cast<const wchar_t *>(area.data()), area.size() / sizeof(wchar_t));
    if (vmdkdesc::DiskBaseName(name).size() > name.size()) abort();
    return 0;
}
