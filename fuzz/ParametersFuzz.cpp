// Any bytes as a parameters file: read without crashing, hanging or leaking,
// with every value the settings can then hold.
#include "files/ParametersFile.h"

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::FILE* file = fmemopen(const_cast<std::uint8_t*>(data), size, "rb");
    if (!file) return 0;
    vellira::SplitSettings settings;
    vellira::readParameters(file, settings, size > 0 && data[0] == 'P');
    std::fclose(file);
    // What was read is written and read again.
    const std::string text = vellira::parametersText(settings, true);
    std::FILE* again = fmemopen(const_cast<char*>(text.data()), text.size(), "rb");
    if (!again) return 0;
    vellira::SplitSettings reread;
    vellira::readParameters(again, reread, false);
    std::fclose(again);
    return 0;
}
