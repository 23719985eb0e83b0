// Byte ranges of a disk and the DiskChangeInfo XML that names them for the
// read cache: <DiskChangeInfo><area startoffset=".." startlength="..">
// <extent offset=".." length=".."/>...</area>...</DiskChangeInfo>.
#pragma once
#include <stdint.h>

#include <string>
#include <vector>

namespace dbtool {

constexpr uint64_t kSectorSize = 512;

struct Extent {
    uint64_t offset = 0;  // bytes, a multiple of kSectorSize
    uint64_t length = 0;  // bytes, a multiple of kSectorSize
    uint64_t End() const { return offset + length; }
    bool operator==(const Extent &o) const { return offset == o.offset && length == o.length; }
};
using ExtentList = std::vector<Extent>;

// The extents of a change list in document order, widened to the whole
// sectors that hold them (the library itself would drop a partial sector, and
// with it bytes the list names); empty ones are left out. Throws Failure for a file that cannot be
// read, is not XML, has no DiskChangeInfo, or has an extent without a decimal
// offset or length, or one that ends past 2^64.
ExtentList LoadChangeList(const std::wstring &path);

// Writes a list of one area over the whole disk holding the given extents in
// order; no whitespace between elements, so every child is an element.
void SaveChangeList(const std::wstring &path, const ExtentList &extents, uint64_t capacityBytes);

// Sorted, overlaps and touching neighbours merged, empty ones dropped.
ExtentList Normalized(ExtentList extents);
uint64_t TotalBytes(const ExtentList &extents);
// The parts of `range` inside `selection` (which must be normalized), in order.
ExtentList Intersection(const Extent &range, const ExtentList &selection);
// The first range of `wanted` not inside `cover` (both normalized); false when
// every byte of wanted is covered.
bool FirstUncovered(const ExtentList &cover, const ExtentList &wanted, Extent *gap);
// Throws Failure when an extent reaches past capacityBytes.
void CheckWithinDisk(const ExtentList &extents, uint64_t capacityBytes, const std::wstring &what);

}  // namespace dbtool
