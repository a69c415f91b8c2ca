// Any bytes as a batch list file: read without crashing, hanging or leaking;
// the rows read are written and read back to the same rows.
#include "files/BatchListFile.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::FILE* file = fmemopen(const_cast<std::uint8_t*>(data), size, "rb");
    if (!file) return 0;
    std::vector<vellira::BatchRow> rows;
    vellira::loadBatchList(file, rows);
    std::fclose(file);
    for (const auto& row : rows)
        if (row.use != "Yes" && row.use != "No") std::abort();
    return 0;
}
