#include "image_check.h"

#include "errors.h"
#include "extents.h"

namespace dbtool {
namespace {

std::wstring Describe(const ExtentList &list) {
    return std::to_wstring(list.size()) + L" extent" + (list.size() == 1 ? L"" : L"s") + L" of " +
           std::to_wstring(TotalBytes(list)) + L" bytes";
}

}  // namespace

void CheckImageAgainstManifest(File &image, const Manifest &manifest) {
    const uint64_t size = image.Size();
    if (size != manifest.capacity)
        throw MismatchError(L"the image '" + image.Path() + L"' is " + std::to_wstring(size) +
                            L" bytes, its manifest says the disk had " + std::to_wstring(manifest.capacity) +
                            L": the manifest does not belong to this image (or was edited)");
    const std::wstring listPath = ExtentListPathFor(image.Path());
    if (!PathExists(listPath))
        throw Failure(L"the image's extent list '" + listPath + L"' is missing; without it the manifest cannot be checked");
    const ExtentList listed = Normalized(LoadChangeList(listPath));
    const ExtentList recorded = Normalized(manifest.Ranges());
    if (listed != recorded) {
        Extent gap;
        const bool missing = FirstUncovered(recorded, listed, &gap);
        throw MismatchError(L"the manifest lists " + Describe(recorded) + L", the image's extent list '" + listPath +
                            L"' " + Describe(listed) +
                            (missing ? L"; the manifest leaves out offset " + std::to_wstring(gap.offset) + L" (" +
                                           std::to_wstring(gap.length) + L" bytes)"
                                     : std::wstring()) +
                            L". Nothing was written.");
    }
}

}  // namespace dbtool
