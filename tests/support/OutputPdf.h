// What a user sees in a PDF the product wrote: its pages, by the page marker
// ("p1", "p2", ...) each fixture page carries, and its bookmarks.
#pragma once

#include "host/MupdfHost.h"

#include <cctype>
#include <filesystem>
#include <string>
#include <vector>

namespace vellira::testing {

// The page markers of a PDF, in page order.
inline std::vector<std::string> pageMarkers(const std::filesystem::path& pdf) {
    MupdfHost host;
    const DocHandle doc = host.openDocument(pdf);
    std::vector<std::string> markers;
    for (int page = 0; page < host.pageCount(doc); ++page) {
        host.enumerateWords(doc, page, [&](const Word& word) {
            if (word.text.size() > 1 && word.text[0] == 'p' && std::isdigit(static_cast<unsigned char>(word.text[1])))
                markers.emplace_back(word.text);
            return true;
        });
    }
    return markers;
}

// A PDF's bookmarks as "Title@page" (1-based), children in brackets:
// "A@1[A1@2] B@4".
inline std::string outlineText(MupdfHost& host, BookmarkHandle parent) {
    std::string text;
    for (BookmarkHandle item = host.firstChild(parent); item; item = host.nextSibling(item)) {
        if (!text.empty()) text += ' ';
        text += host.bookmarkTitle(item) + "@" + std::to_string(host.bookmarkPage(item) + 1);
        if (host.firstChild(item)) text += "[" + outlineText(host, item) + "]";
    }
    return text;
}
inline std::string outlineText(const std::filesystem::path& pdf) {
    MupdfHost host;
    const BookmarkHandle root = host.bookmarkRoot(host.openDocument(pdf));
    return root ? outlineText(host, root) : std::string();
}

}  // namespace vellira::testing
