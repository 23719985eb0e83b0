// An opened disk: its chain of links (top first), reads falling through to parents,
// writes into the top link with the CID changed on the first write after the open.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "link.h"

namespace vddksim {

class Chain {
public:
    std::vector<std::unique_ptr<Link>> links;  // [0] is the opened link
    bool writable = false;
    bool remote = false;
    std::string openedPath;  // as the caller named it

    Link &Top() { return *links[0]; }
    uint64_t Capacity() const { return links[0]->Capacity(); }
    VixError Read(uint64_t sector, uint64_t count, uint8_t *buf);
    VixError Write(uint64_t sector, uint64_t count, const uint8_t *buf);
    // Reads what the chain below `level` holds (zeros past each link's end).
    VixError ReadFrom(size_t level, uint64_t sector, uint64_t count, uint8_t *buf);

private:
    bool cidChanged_ = false;
};

// Opens `path` and, unless singleLink, its parents through parentFileNameHint.
// 16012 when a parent is missing, 16008 (and a warning line) on a CID mismatch.
VixError OpenChain(const std::string &path, bool writable, bool singleLink, std::unique_ptr<Chain> *out);
// Where a link's hint points: relative hints are joined to the link's folder.
std::string ResolveParent(const Link &child);
// Appends `parent`'s links under `child`'s after the CID check (Attach).
VixError LinkParent(Chain *child, Chain *parent);

}  // namespace vddksim
