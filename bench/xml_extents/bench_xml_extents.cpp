// Loads and walks a 1,000,000-extent DiskChangeInfo file with CXmlReader, and
// makes a bare XmlLite pass over the same file (every element and attribute
// value fetched, nothing kept), then prints both times and their ratio.
// Usage: bench_xml_extents [areas [extents-per-area]]
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include <skxml/xmlreader.h>

#include "../support/bench_timing.h"
#include "../support/extent_list_xml.h"

namespace {

using benchsupport::BareXmlLitePass;
using benchsupport::Now;

// The read cache's walk: first area, its extents, then the next area.
unsigned long long LoadAndWalk(const std::wstring &path, unsigned long long &sum) {
    CXmlReader reader;
    if (!reader.LoadFile(path.c_str())) {
        fwprintf(stderr, L"load failed: %ls\n", reader.ErrorText().c_str());
        return 0;
    }
    unsigned long long extents = 0;
    if (!reader.SelectSingleNode(L"DiskChangeInfo") || !reader.SelectFirstChild()) return 0;
    do {
        uint64_t start = 0, length = 0;
        reader.GetAttributeUInt64(L"startoffset", start);
        reader.GetAttributeUInt64(L"startlength", length);
        if (!reader.SelectFirstChild()) continue;
        do {
            uint64_t offset = 0;
            reader.GetAttributeUInt64(L"offset", offset);
            reader.GetAttributeUInt64(L"length", length);
            sum += offset / 512 + length / 512;
            ++extents;
        } while (reader.SelectNextSibling());
        reader.SelectParent();
    } while (reader.SelectNextSibling());
    return extents;
}

}  // namespace

int main(int argc, char **argv) {
    unsigned areas = argc > 1 ? static_cast<unsigned>(atoi(argv[1])) : 1000;
    unsigned perArea = argc > 2 ? static_cast<unsigned>(atoi(argv[2])) : 1000;
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    std::wstring path = std::wstring(temp) + L"bench_xml_extents.xml";
    if (!benchsupport::WriteExtentList(path, areas, perArea, 65536, 1048576)) return 1;
    WIN32_FILE_ATTRIBUTE_DATA info;
    GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &info);
    printf("extent list: %u areas x %u extents, %.1f MB\n", areas, perArea,
           static_cast<double>(info.nFileSizeLow + (static_cast<unsigned long long>(info.nFileSizeHigh) << 32)) / 1048576.0);
    double bestReader = 1e9, bestBare = 1e9;
    unsigned long long extents = 0, sum = 0;
    for (int round = 0; round < 3; ++round) {  // alternate, keep the best of each
        double t0 = Now();
        BareXmlLitePass(path);
        double t1 = Now();
        extents = LoadAndWalk(path, sum);
        double t2 = Now();
        if (t1 - t0 < bestBare) bestBare = t1 - t0;
        if (t2 - t1 < bestReader) bestReader = t2 - t1;
    }
    DeleteFileW(path.c_str());
    printf("extents walked: %llu (checksum %llu)\n", extents, sum);
    printf("bare XmlLite pass:      %.3f s\n", bestBare);
    printf("CXmlReader load + walk: %.3f s\n", bestReader);
    printf("ratio: %.2f (goal <= 1.5)\n", bestReader / bestBare);
    return extents == static_cast<unsigned long long>(areas) * perArea ? 0 : 2;
}
