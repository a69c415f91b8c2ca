#include "core/DocumentHost.h"

#include <climits>
#include <cmath>

namespace vellira {

std::filesystem::path DocumentHost::makeHostPath(std::string_view text) const { return pathFromText(text); }

DocHandle DocumentHost::reopenDocument(DocHandle doc) {
    const auto view = activeViewDocument();
    const bool current = view && documentOfView(*view) == doc;
    const auto path = makeHostPath(filePath(doc));
    closeDocument(doc);
    return current ? openDocument(path) : openDocumentUnseen(path);
}

void DocumentHost::appendWords(DocHandle doc, int page, std::vector<Word>& words) {
    enumerateWords(doc, page, [&](const Word& word) {
        words.push_back(word);
        return true;
    });
}

std::string DocumentHost::errorText(int code) const {
    switch (code) {
        case HostError::kSyntax: return "syntax error in file";
        case HostError::kNeedsPassword: return "cannot authenticate password";
        case HostError::kArgument: return "invalid argument";
        case HostError::kIo: return "input/output error";
        default: return "unknown error";
    }
}

int truncateCoordinate(double points) {
    if (std::isnan(points)) return 0;
    const double whole = std::trunc(points);
    if (whole >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (whole <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(whole);
}

void DocumentHost::raise(int code) const { throw HostError(code, errorText(code)); }

}  // namespace vellira
