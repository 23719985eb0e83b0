// What a restore checks of an image before it writes anything: that the
// manifest describes this image (its size is the manifest's capacity) and
// that the manifest's extents are the ones the backup gave the library (the
// image's own extent list). The stream digest is checked as the data flows.
#pragma once
#include "files.h"
#include "manifest.h"

namespace dbtool {

// Throws MismatchError when the image, its extent list and the manifest
// disagree; Failure when the extent list is missing or unreadable.
void CheckImageAgainstManifest(File &image, const Manifest &manifest);

}  // namespace dbtool
