// A DocumentHost that serves pages of words at exact positions, so engine
// rules are tested without a PDF. Documents are registered by path; saving
// records the pages under the target path.
#pragma once

#include "core/DocumentHost.h"

#include <map>
#include <string>
#include <vector>

namespace vellira::testing {

struct ScriptedWord {
    std::string text;
    double h = 0;
    double v = 0;
};
using ScriptedPage = std::vector<ScriptedWord>;

class ScriptedHost : public DocumentHost {
public:
    std::map<std::string, std::vector<ScriptedPage>> files;  // what open reads, what save writes
    int failOnPage = -1;                                     // enumerating this page raises a host error
    int rotation = 0;                                        // every page's /Rotate

    std::optional<ViewHandle> activeViewDocument() override {
        if (!current_) return std::nullopt;
        return ViewHandle{current_};
    }
    DocHandle documentOfView(ViewHandle view) override { return DocHandle{doc(DocHandle{view.id}).id}; }
    std::string filePath(DocHandle handle) override { return doc(handle).path; }
    DocHandle openFile(const std::filesystem::path& path, bool makeCurrent) override {
        const auto it = files.find(path.string());
        if (it == files.end()) throw HostError(HostError::kIo, "cannot open file '" + path.string() + "'");
        const int id = next_++;
        docs_[id] = {id, path.string(), it->second};
        if (makeCurrent) current_ = id;
        return DocHandle{id};
    }
    DocHandle createDocument() override {
        const int id = next_++;
        docs_[id] = {id, {}, {}};
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
        return rotation;
    }
    void enumerateWords(DocHandle handle, int page, const WordCallback& onWord) override {
        auto& pages = doc(handle).pages;
        if (page < 0 || page >= static_cast<int>(pages.size()) || page == failOnPage)
            throw HostError(HostError::kSyntax, "cannot read page " + std::to_string(page + 1));
        // A copy: the callback may close and reopen the document.
        const ScriptedPage words = pages[page];
        std::uint16_t number = 0;
        for (const auto& word : words)
            if (!onWord(HostWord{word.text, word.h, word.v, number++})) return;
    }
    BookmarkHandle bookmarkRoot(DocHandle handle) override { return {handle, 0}; }
    BookmarkHandle firstChild(BookmarkHandle b) override { return {b.doc, 0}; }
    BookmarkHandle nextSibling(BookmarkHandle b) override { return {b.doc, 0}; }
    std::string bookmarkTitle(BookmarkHandle) override { return {}; }
    int bookmarkIndent(BookmarkHandle) override { return 0; }
    int bookmarkPage(BookmarkHandle) override { return -1; }

private:
    struct Doc {
        int id = 0;
        std::string path;
        std::vector<ScriptedPage> pages;
    };
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
