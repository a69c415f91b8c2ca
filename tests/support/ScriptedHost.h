// A DocumentHost that serves pages of words at exact positions, and outlines of bookmarks, so engine rules are tested
// without a PDF. Documents are registered by path; saving records the pages under the target path.
#pragma once

#include "core/DocumentHost.h"

#include <map>
#include <string>
#include <vector>

namespace vellira::testing {

using ScriptedPage = std::vector<Word>;

// A bookmark: its title, the 0-based page it points at (-1: nowhere) and its children.
struct ScriptedBookmark {
    std::string title;
    int page = -1;
    std::vector<ScriptedBookmark> children;
};

class ScriptedHost : public DocumentHost {
public:
    std::map<std::string, std::vector<ScriptedPage>> files;         // what open reads, what save writes
    std::map<std::string, std::vector<ScriptedBookmark>> outlines;  // a file's top-level bookmarks
    bool cyclicOutline = false;  // the last top-level bookmark's next one is the first again
    int failOnPage = -1;         // enumerating this page raises a host error

    std::optional<ViewHandle> activeViewDocument() override {
        return current_ ? std::optional(ViewHandle{current_}) : std::nullopt;
    }
    DocHandle documentOfView(ViewHandle view) override { return DocHandle{doc(DocHandle{view.id}).id}; }
    std::string filePath(DocHandle handle) override { return doc(handle).path; }
    DocHandle openFile(const std::filesystem::path& path, bool makeCurrent) override {
        const auto it = files.find(path.string());
        if (it == files.end()) throw HostError(HostError::kIo, "cannot open file '" + path.string() + "'");
        const int id = next_++;
        Doc& opened = docs_[id] = {id, path.string(), it->second, {{}}};
        if (const auto outline = outlines.find(path.string()); outline != outlines.end()) {
            opened.nodes[0].firstChild = addNodes(opened, outline->second, 0);
            if (cyclicOutline && opened.nodes[0].firstChild) {
                int last = opened.nodes[0].firstChild;
                while (opened.nodes[last].next) last = opened.nodes[last].next;
                opened.nodes[last].next = opened.nodes[0].firstChild;
            }
        }
        if (makeCurrent) current_ = id;
        return DocHandle{id};
    }
    DocHandle createDocument() override {
        const int id = next_++;
        docs_[id] = {id, {}, {}, {{}}};
        return DocHandle{id};
    }
    void insertPages(DocHandle target, DocHandle source, int first, int count, bool) override {
        auto& from = doc(source).pages;
        if (first < 0 || count < 1 || first + count > static_cast<int>(from.size()))
            throw HostError(HostError::kArgument, "invalid page range");
        auto& to = doc(target).pages;
        to.insert(to.end(), from.begin() + first, from.begin() + first + count);
    }
    void saveDocument(DocHandle handle, const std::filesystem::path& path) override {
        files[path.string()] = doc(handle).pages;
    }
    void closeDocument(DocHandle handle) override {
        docs_.erase(handle.id);
        if (current_ == handle.id) current_ = 0;
    }
    int pageCount(DocHandle handle) override { return static_cast<int>(doc(handle).pages.size()); }
    int pageRotation(DocHandle handle, int) override {
        doc(handle);
        return 0;
    }
    void enumerateWords(DocHandle handle, int page, const WordCallback& onWord) override {
        auto& pages = doc(handle).pages;
        if (page < 0 || page >= static_cast<int>(pages.size()) || page == failOnPage)
            throw HostError(HostError::kSyntax, "cannot read page " + std::to_string(page + 1));
        // A copy: the callback may close and reopen the document.
        ScriptedPage words = pages[page];
        std::uint16_t number = 0;
        for (auto& word : words) {
            word.page = page;
            word.number = number++;
            if (!onWord(word)) return;
        }
    }
    BookmarkHandle bookmarkRoot(DocHandle handle) override { return {handle, doc(handle).nodes[0].firstChild ? 1 : 0}; }
    BookmarkHandle firstChild(BookmarkHandle b) override { return {b.doc, item(node(b).firstChild)}; }
    BookmarkHandle nextSibling(BookmarkHandle b) override { return {b.doc, item(node(b).next)}; }
    std::string bookmarkTitle(BookmarkHandle b) override { return node(b).title; }
    int bookmarkIndent(BookmarkHandle b) override { return node(b).indent; }
    int bookmarkPage(BookmarkHandle b) override { return node(b).page; }

private:
    // Outline items by index; 0 is the root, and 0 in a link is "none".
    struct Node {
        std::string title;
        int page = -1, indent = 0, firstChild = 0, next = 0;
    };
    struct Doc {
        int id = 0;
        std::string path;
        std::vector<ScriptedPage> pages;
        std::vector<Node> nodes;
    };
    static int item(int index) { return index ? index + 1 : 0; }
    // Adds the bookmarks as a chain of siblings; answers the index of the first.
    static int addNodes(Doc& d, const std::vector<ScriptedBookmark>& bookmarks, int indent) {
        int first = 0, previous = 0;
        for (const auto& bookmark : bookmarks) {
            const int index = static_cast<int>(d.nodes.size());
            d.nodes.push_back({bookmark.title, bookmark.page, indent, 0, 0});
            (previous ? d.nodes[previous].next : first) = index;
            previous = index;
            d.nodes[index].firstChild = addNodes(d, bookmark.children, indent + 1);  // evaluated before the index
        }
        return first;
    }
    Node& node(BookmarkHandle b) {
        auto& nodes = doc(b.doc).nodes;
        if (b.item < 1 || b.item > static_cast<int>(nodes.size()))
            throw HostError(HostError::kSyntax, "no such bookmark");
        return nodes[b.item - 1];
    }
    Doc& doc(DocHandle handle) {
        const auto it = docs_.find(handle.id);
        if (it == docs_.end()) throw HostError(HostError::kArgument, "no such document");
        return it->second;
    }
    std::map<int, Doc> docs_;
    int next_ = 1;
    int current_ = 0;
};

}  // namespace vellira::testing
