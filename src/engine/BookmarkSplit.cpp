// The bookmark split: a document cut at the pages its bookmarks point to, each
// range named by its bookmark's title.
#include "core/Text.h"
#include "engine/SplitEngine.h"

#include <algorithm>
#include <set>

namespace vellira {

namespace {

// Deeper outlines than this are taken for broken ones.
constexpr int kMaxBookmarkDepth = 1000;

struct BookmarkWalk {
    SplitEngine& engine;
    std::set<int> visited;

    bool qualifies(BookmarkHandle bookmark) {
        switch (engine.run.lAquireType) {
            case PageExtractMode::BookmarksRootLevel: return engine.host.bookmarkIndent(bookmark) == 0;
            case PageExtractMode::BookmarksLevel2: return engine.host.bookmarkIndent(bookmark) == 1;
            default: return true;
        }
    }

    // The same outline item in the source as it is open now: writing a range
    // may have reopened it.
    BookmarkHandle current(BookmarkHandle bookmark) const { return {engine.doc.source, bookmark.item}; }

    // Depth first: a bookmark, then its children, then its next sibling.
    void visit(BookmarkHandle bookmark, int depth) {
        if (!bookmark) return;
        if (!visited.insert(bookmark.item).second) throw HostError(HostError::kSyntax, "bookmarks form a cycle");
        if (depth > kMaxBookmarkDepth) throw HostError(HostError::kSyntax, "bookmarks nested too deeply");
        if (engine.ui.cancelled()) return;
        auto& doc = engine.doc;
        const std::string title(firstCharacters(engine.host.bookmarkTitle(bookmark), kMaxWordChars));
        const bool cuts = qualifies(bookmark);
        const int page = engine.host.bookmarkPage(bookmark);
        if (page >= 0 && cuts && !title.empty()) {
            if (doc.lStartPage >= 0) {
                doc.lEndPage = std::max(page - 1, doc.lStartPage);
                if (engine.run.trace.on()) engine.run.trace.write("ExtractPages 6\r\n");
                engine.extractNamed(doc.g_szBuf, nullptr);
            }
            doc.g_szBuf = title;
            doc.lStartPage = page;
        }
        for (BookmarkHandle child = engine.host.firstChild(current(bookmark)); child;
             child = engine.host.nextSibling(current(child)))
            visit(child, depth + 1);
    }
};

}  // namespace

void SplitEngine::splitAtBookmarks() {
    const auto view = host.activeViewDocument();
    if (!view) return;
    try {
        doc.source = host.documentOfView(*view);
        doc.totalPages = host.pageCount(doc.source);
    } catch (const HostError&) {
        return;
    }
    doc.lStartPage = -1;
    doc.g_szBuf.clear();
    BookmarkWalk walk{*this, {}};
    try {
        walk.visit(host.bookmarkRoot(doc.source), 0);
    } catch (const HostError&) {
        ui.note("error! please check your bookmarks are valid.");
        ++run.scansFailed;
    }
    if (!doc.g_szBuf.empty() && doc.lStartPage >= 0 && !ui.cancelled()) {
        doc.lEndPage = std::max(doc.totalPages - 1, doc.lStartPage);
        if (run.trace.on()) run.trace.write("ExtractPages 7\r\n");
        extractNamed(doc.g_szBuf, nullptr);
    }
}

}  // namespace vellira
