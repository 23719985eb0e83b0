// The embedded descriptor of a monolithic sparse .vmdk, read and rewritten as
// bytes. Pure standard C++ (no Windows): the callers do the file I/O, so this
// unit can be driven with arbitrary bytes by tests and fuzzers.
//
// Everything here works inside one descriptor area (the bytes the header names);
// nothing reads or writes past it, whatever the bytes say.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace vmdkdesc {

constexpr size_t kHeaderSize = 512;
constexpr uint64_t kSectorSize = 512;
// A line is read as the product always has (a 1024-byte buffer): a line of
// 1024 bytes or more is a read failure, not a truncation.
constexpr size_t kLineLimit = 1024;
// Descriptors are a few sectors; a header naming more than this is not a
// disk we read whole into memory.
constexpr uint64_t kMaxAreaBytes = 64ull << 20;
// A parent without a valid CID, or a child without a parent.
constexpr char kNoCid[] = "ffffffff";

// Descriptor offset (header byte 28) and size (byte 36), little-endian, in
// sectors. An offset of 0: no embedded descriptor.
struct Area {
    uint64_t offsetSectors = 0;
    uint64_t sizeSectors = 0;
};
Area AreaFromHeader(const uint8_t (&header)[kHeaderSize]);
// The area in bytes, when it lies wholly inside a file of fileSize bytes
// (overflow included); false with the reason in error otherwise.
bool AreaInFile(const Area &area, uint64_t fileSize, uint64_t &offset, size_t &size, std::string &error);

// Lines of a descriptor area: the text ends at its first NUL byte. A line ends
// at a line feed (not kept) or at that NUL. Reaching the end of the area
// without a NUL, or a line of kLineLimit bytes or more, is an error.
class LineReader {
public:
    enum class Step { Line, End, Error };
    LineReader(const char *data, size_t size) : data_(data), size_(size) {}
    Step Next(std::string &line, std::string &error);

private:
    const char *data_;
    size_t size_;
    size_t at_ = 0;
};

// True when the first 8 characters of value are "ffffffff" in any case.
bool IsNoCid(const std::string &value);
// Up to 8 characters after the first "=" of line.
std::string CidValue(const std::string &line);

// What GetParentDiskPath reads: the parentFileNameHint path (quotes and line
// end removed), empty when the disk has no parent ("parentCID=ffffffff"
// before the hint) or no hint at all. False only on a read error.
bool ReadParentHint(const char *data, size_t size, std::string &hint, std::string &error);
// The value of the first line that contains "CID"; kNoCid when there is none.
// False only on a read error.
bool ReadCid(const char *data, size_t size, std::string &cid, std::string &error);

// The child's area with its parent link replaced: every "parentCID" line
// becomes "parentCID=<cid>" followed by "parentFileNameHint=\"<parentPath>\"",
// every other "parentFileNameHint" line is dropped, all other lines keep their
// text (each ending in one line feed). out is exactly size bytes, NUL padded.
// False, out untouched, on a read error or when the text would not fit with
// at least one NUL after it (the area must still end its text).
bool RewriteParentLink(const char *data, size_t size, const std::string &cid, const std::string &parentPath,
                       std::vector<char> &out, std::string &error);

// The name a child and its parents share: the file name without folder and
// extension, and without a delta tail "-xxxxxx" (the last "-" standing exactly
// 7 characters before the end; the 6 characters are not checked).
std::wstring DiskBaseName(const std::wstring &path);

}  // namespace vmdkdesc
