#include "chain.h"

#include <string.h>

#include <algorithm>
#include <vector>

#include "file_io.h"
#include "sim_control.h"

namespace vddksim {

VixError Chain::ReadFrom(size_t level, uint64_t sector, uint64_t count, uint8_t *buf) {
    while (count > 0) {
        if (level >= links.size() || sector >= links[level]->Capacity()) {
            memset(buf, 0, size_t(count * 512));
            return VIX_OK;
        }
        Link &link = *links[level];
        const uint64_t grain = link.GrainSectors();
        const uint64_t n = std::min({count, grain - sector % grain, link.Capacity() - sector});
        bool allocated = false;
        VixError err = link.Read(sector, n, buf, &allocated);
        if (err == VIX_OK && !allocated) err = ReadFrom(level + 1, sector, n, buf);
        if (err != VIX_OK) return err;
        sector += n;
        count -= n;
        buf += n * 512;
    }
    return VIX_OK;
}

VixError Chain::Read(uint64_t sector, uint64_t count, uint8_t *buf) { return ReadFrom(0, sector, count, buf); }

VixError Chain::Write(uint64_t sector, uint64_t count, const uint8_t *buf) {
    Link &top = Top();
    const ReadBelow below = [this](uint64_t s, uint64_t n, uint8_t *out) { return ReadFrom(1, s, n, out); };
    const uint64_t grain = top.GrainSectors();
    while (count > 0) {
        const uint64_t n = std::min(count, grain - sector % grain);
        VixError err = top.Write(sector, n, buf, below);
        if (err != VIX_OK) return err;
        sector += n;
        count -= n;
        buf += n * 512;
    }
    if (!cidChanged_ && !top.IsMemory()) {
        // Children made before this write no longer match: as VMware and qemu do.
        cidChanged_ = true;
        top.desc.cid = NewCid();
        return top.SaveDescriptor();
    }
    return VIX_OK;
}

std::string ResolveParent(const Link &child) {
    const std::string &hint = child.desc.parentHint;
    return IsAbsolutePath(hint) ? hint : FolderOf(child.path) + hint;
}

namespace {

VixError CheckParentCid(const Link &child, const Link &parent) {
    if (child.desc.parentCid == parent.desc.cid) return VIX_OK;
    LogWarning("DISKLIB-LINK  : Parent CID mismatch: '%s' expects %x, '%s' has CID %x.\n", child.path.c_str(),
               child.desc.parentCid, parent.path.c_str(), parent.desc.cid);
    return VIX_E_DISK_CID_MISMATCH;
}

}  // namespace

VixError OpenChain(const std::string &path, bool writable, bool singleLink, std::unique_ptr<Chain> *out) {
    auto chain = std::make_unique<Chain>();
    chain->writable = writable;
    chain->openedPath = path;
    std::unique_ptr<Link> top;
    VixError err = OpenLinkFile(path, writable, &top);
    if (err != VIX_OK) return err;
    chain->links.push_back(std::move(top));
    std::vector<std::string> seen{FullPath(path)};
    while (!singleLink && !chain->links.back()->desc.parentHint.empty()) {
        const Link &child = *chain->links.back();
        const std::string parentPath = ResolveParent(child);
        // A hint that leads back into the chain: VDDK cannot open the parent,
        // and says why rather than blaming the disks' style.
        const std::string fullParent = FullPath(parentPath);
        const bool loops = std::find(seen.begin(), seen.end(), fullParent) != seen.end();
        if (loops || chain->links.size() > 64) {
            LogWarning("DISKLIB-LINK  : The parent chain of '%s' %s at '%s'.\n", path.c_str(),
                       loops ? "loops back" : "is deeper than 64 links", parentPath.c_str());
            return VIX_E_DISK_OPENPARENT;
        }
        seen.push_back(fullParent);
        std::unique_ptr<Link> parent;
        err = OpenLinkFile(parentPath, false, &parent);
        if (err == VIX_E_FILE_NOT_FOUND) {
            LogWarning("DISKLIB-LINK  : Failed to open parent '%s' of '%s'.\n", parentPath.c_str(), child.path.c_str());
            return VIX_E_DISK_OPENPARENT;
        }
        if (err != VIX_OK) return err;
        err = CheckParentCid(child, *parent);
        if (err != VIX_OK) return err;
        chain->links.push_back(std::move(parent));
    }
    *out = std::move(chain);
    return VIX_OK;
}

VixError LinkParent(Chain *child, Chain *parent) {
    Link &bottom = *child->links.back();
    if (bottom.desc.parentHint.empty()) return VIX_E_DISK_ATTACH_ROOTLINK;
    VixError err = CheckParentCid(bottom, parent->Top());
    if (err != VIX_OK) return err;
    for (auto &link : parent->links) child->links.push_back(std::move(link));
    parent->links.clear();
    return VIX_OK;
}

}  // namespace vddksim
