// The manifest written beside a backup image: what was streamed and its
// checksums. A UTF-8 text file, one "key value..." per line:
//   diskbroker-manifest 1
//   source <disk path>
//   capacity <disk size in bytes>
//   metadata <file name of the metadata export, beside the image>
//   extent <offset> <length> <sha256 of those bytes>     (in stream order)
//   stream <sha256 of every streamed byte, in order>
#pragma once
#include <stdint.h>

#include <string>
#include <vector>

#include "extents.h"

namespace dbtool {

struct ManifestExtent {
    Extent range;
    std::wstring sha256;  // 64 lower-case hex digits
};

struct Manifest {
    std::wstring source;
    uint64_t capacity = 0;
    std::wstring metadataFile;
    std::vector<ManifestExtent> extents;
    std::wstring streamSha256;

    ExtentList Ranges() const;
    uint64_t StreamBytes() const { return TotalBytes(Ranges()); }

    std::string Serialize() const;
    // Throws Failure naming `origin` and the line for anything malformed:
    // unknown version, missing keys, bad numbers or digests, extents that
    // overlap or reach past the capacity.
    static Manifest Parse(const std::string &text, const std::wstring &origin);

    void Save(const std::wstring &path) const;
    static Manifest Load(const std::wstring &path);
};

// Where backup puts the files that belong to an image.
std::wstring ManifestPathFor(const std::wstring &imagePath);
std::wstring MetadataPathFor(const std::wstring &imagePath);
std::wstring ExtentListPathFor(const std::wstring &imagePath);

}  // namespace dbtool
