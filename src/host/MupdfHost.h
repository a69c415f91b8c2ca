// MupdfHost: the document host on MuPDF.
//
// Each host works on a MuPDF context of its own that shares nothing, so
// hosts on several threads open, read and save side by side, even the same
// file, without waiting on each other. One host is used from one thread at a
// time.
#pragma once

#include "core/DocumentHost.h"

#include <memory>
#include <utility>
#include <vector>

namespace vellira {

// The version of MuPDF the host is built on.
std::string mupdfVersion();

class MupdfHost final : public DocumentHost {
public:
    MupdfHost();
    ~MupdfHost() override;
    MupdfHost(const MupdfHost&) = delete;
    MupdfHost& operator=(const MupdfHost&) = delete;

    // Makes an open document the one "in view" (the GUI's viewer does this).
    void setCurrentDocument(DocHandle doc);

    // What a viewer needs beyond the split. A page as drawn is in points,
    // origin top-left, with the page's rotation applied.
    struct PageImage {
        int width = 0;
        int height = 0;
        std::vector<unsigned char> pixels;  // RGB, 3 bytes a pixel, row after row
    };
    // A 0-based page drawn at `zoom` pixels a point. Throws HostError.
    PageImage renderPage(DocHandle doc, int page, float zoom);
    // The size of a page as drawn, in points. Throws HostError.
    std::pair<float, float> pageSize(DocHandle doc, int page);
    // Every word of a page with the box it covers as drawn.
    struct WordBox {
        Word word;
        float x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    };
    std::vector<WordBox> wordBoxes(DocHandle doc, int page);

    std::optional<ViewHandle> activeViewDocument() override;
    DocHandle documentOfView(ViewHandle view) override;
    std::string filePath(DocHandle doc) override;
    DocHandle createDocument() override;
    void insertPages(DocHandle target, DocHandle source, int firstPage, int count, bool bookmarks) override;
    void saveDocument(DocHandle doc, const std::filesystem::path& path) override;
    void closeDocument(DocHandle doc) override;
    DocHandle reopenDocument(DocHandle doc) override;
    int pageCount(DocHandle doc) override;
    int pageRotation(DocHandle doc, int page) override;
    void enumerateWords(DocHandle doc, int page, const WordCallback& onWord) override;
    void appendWords(DocHandle doc, int page, std::vector<Word>& words) override;
    bool pageRecognized(DocHandle doc, int page) override;
    bool pageBlank(DocHandle doc, int page) override;
    std::shared_ptr<const TextLayer> recognizedLayer(DocHandle doc, int page) override;
    void addTextLayer(DocHandle target, int page, const TextLayer& layer) override;
    BookmarkHandle bookmarkRoot(DocHandle doc) override;
    BookmarkHandle firstChild(BookmarkHandle bookmark) override;
    BookmarkHandle nextSibling(BookmarkHandle bookmark) override;
    std::string bookmarkTitle(BookmarkHandle bookmark) override;
    int bookmarkIndent(BookmarkHandle bookmark) override;
    int bookmarkPage(BookmarkHandle bookmark) override;

protected:
    DocHandle openFile(const std::filesystem::path& path, bool makeCurrent) override;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vellira
