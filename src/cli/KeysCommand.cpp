// keys: what every setting is, from the key table.
#include "cli/Commands.h"

namespace vellira::cli {

int runKeys(const KeysOptions&) { return 1; }

std::vector<std::string> nearestNames(std::string_view, const std::vector<std::string>&) { return {}; }

}  // namespace vellira::cli
