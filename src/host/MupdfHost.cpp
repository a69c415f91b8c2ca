#include "host/MupdfHost.h"

#include "core/Platform.h"
#include "core/Text.h"
#include "host/AnnotationCarrier.h"
#include "host/MupdfGuard.h"

extern "C" {
#include <mupdf/fitz.h>
#include <mupdf/pdf.h>
}

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vellira {

namespace {

constexpr int kDirectOutlineRoot = -1;  // an /Outlines dictionary that is not an indirect object
constexpr int kMaxOutlineDepth = 256;

bool isBlank(int c) { return c <= 32 || c == 0xA0 || (c >= 0x2000 && c <= 0x200B) || c == 0x3000 || c == 0xFEFF; }

// A source bookmark to carry over into a target document.
struct CarriedBookmark {
    std::string title;
    int page = -1;
    std::vector<CarriedBookmark> children;
};

int countCarried(const std::vector<CarriedBookmark>& nodes) {
    int total = 0;
    for (const auto& node : nodes) total += 1 + countCarried(node.children);
    return total;
}

// A source's whole outline, read once, with an index by page: the bookmarks
// of a range are found without walking the outline for every range.
class OutlineIndex {
public:
    // Adds an item after all items read so far (reading order); `parent` is
    // the index of its parent item, -1 for a top-level item. Answers its index.
    int add(std::string title, int page, int parent) {
        nodes_.push_back({std::move(title), page, parent});
        return static_cast<int>(nodes_.size()) - 1;
    }
    // Sorts the index by page; call once after the last add.
    void seal() {
        byPage_.resize(nodes_.size());
        for (std::size_t i = 0; i < nodes_.size(); ++i) byPage_[i] = static_cast<int>(i);
        std::stable_sort(byPage_.begin(), byPage_.end(),
                         [this](int a, int b) { return nodes_[a].page < nodes_[b].page; });
    }

    // The bookmarks whose page lies in [first, last], each under its nearest
    // kept ancestor, in reading order.
    std::vector<CarriedBookmark> inRange(int first, int last) const {
        const auto pageOf = [this](int node) { return nodes_[node].page; };
        auto from = std::lower_bound(byPage_.begin(), byPage_.end(), first,
                                     [&](int node, int page) { return pageOf(node) < page; });
        auto to = std::upper_bound(from, byPage_.end(), last, [&](int page, int node) { return page < pageOf(node); });
        std::vector<int> kept(from, to);
        std::sort(kept.begin(), kept.end());
        std::unordered_map<int, std::size_t> slot;  // node -> its place in kept
        for (std::size_t i = 0; i < kept.size(); ++i) slot.emplace(kept[i], i);
        std::vector<std::vector<std::size_t>> children(kept.size());
        std::vector<std::size_t> roots;
        for (std::size_t i = 0; i < kept.size(); ++i) {
            int ancestor = nodes_[kept[i]].parent;
            while (ancestor >= 0 && !slot.count(ancestor)) ancestor = nodes_[ancestor].parent;
            (ancestor < 0 ? roots : children[slot[ancestor]]).push_back(i);
        }
        std::vector<CarriedBookmark> out;
        build(kept, children, roots, out);
        return out;
    }

private:
    struct Node {
        std::string title;
        int page = -1;
        int parent = -1;
    };

    void build(const std::vector<int>& kept, const std::vector<std::vector<std::size_t>>& children,
               const std::vector<std::size_t>& level, std::vector<CarriedBookmark>& out) const {
        for (const std::size_t i : level) {
            const Node& node = nodes_[kept[i]];
            out.push_back({node.title, node.page, {}});
            build(kept, children, children[i], out.back().children);
        }
    }

    std::vector<Node> nodes_;
    std::vector<int> byPage_;  // node indices ordered by page
};

// A source file read through a few blocks kept in memory. MuPDF's own file
// stream reads 4 KB at a time and seeks the file again before every object
// and every piece of a content stream: over a long document, two system calls
// for each, as much as a tenth of the run. Here going back to bytes read a
// moment ago costs no call, and a block is one read. A file that shrinks
// while it is read ends early, as MuPDF's stream would: nothing is mapped.
class BlockFile {
public:
    // Throws MuPDF's error when the file cannot be opened.
    static fz_stream* open(fz_context* ctx, const std::filesystem::path& path) {
        char failure[1024] = "";
        BlockFile* state = create(path, failure, sizeof failure);
        if (!state) fz_throw(ctx, FZ_ERROR_GENERIC, "%s", failure);
        fz_stream* stream = fz_new_stream(ctx, state, next, drop);  // drops the state when it fails
        stream->seek = seek;
        return stream;
    }

private:
    static constexpr std::int64_t kBlockSize = 32 * 1024;
    static constexpr std::size_t kBlocks = 16;

    struct Block {
        std::int64_t start = -1;
        std::size_t length = 0;
        std::uint64_t used = 0;
        std::unique_ptr<unsigned char[]> bytes;
    };

    // No MuPDF error is thrown here, past objects that must be destroyed.
    static BlockFile* create(const std::filesystem::path& path, char* failure, std::size_t room) noexcept {
        try {
            errno = 0;
            FileHandle file = openFile(path, "rb");
            struct stat status;
            if (file && ::fstat(fileno(file.get()), &status) == 0)
                return new BlockFile(std::move(file), status.st_size);
            const int why = errno;
            std::snprintf(failure, room, "cannot open %s: %s", pathText(path).c_str(),
                          why ? std::strerror(why) : "not a plain file");
        } catch (const std::exception& error) {
            std::snprintf(failure, room, "cannot open file: %s", error.what());
        }
        return nullptr;
    }

    // Blocks are made as they are first needed, no larger than the file, and
    // never cleared: a small file costs a small buffer.
    BlockFile(FileHandle file, std::int64_t size)
        : file_(std::move(file)),
          size_(size),
          blockSize_(static_cast<std::size_t>(std::clamp<std::int64_t>(size, 1, kBlockSize))),
          blocks_(kBlocks) {}

    // The block that holds `position`, read when it is not kept.
    Block& blockAt(fz_context* ctx, std::int64_t position) {
        const std::int64_t start = position - position % kBlockSize;
        Block* oldest = &blocks_.front();
        for (auto& block : blocks_) {
            if (block.start == start) {
                block.used = ++clock_;
                return block;
            }
            if (block.used < oldest->used) oldest = &block;
        }
        if (!oldest->bytes) oldest->bytes = std::make_unique_for_overwrite<unsigned char[]>(blockSize_);
        std::size_t length = 0;
        while (length < blockSize_) {
            const ssize_t got = ::pread(fileno(file_.get()), oldest->bytes.get() + length, blockSize_ - length,
                                        static_cast<off_t>(start + static_cast<std::int64_t>(length)));
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) {
                oldest->start = -1;
                fz_throw(ctx, FZ_ERROR_GENERIC, "read error: %s", std::strerror(errno));
            }
            if (got == 0) break;
            length += static_cast<std::size_t>(got);
        }
        oldest->start = start;
        oldest->length = length;
        oldest->used = ++clock_;
        return *oldest;
    }

    // The stream's bytes from its position to the end of the block that
    // holds it; stm->pos is always the position just past what it was given.
    static int next(fz_context* ctx, fz_stream* stm, std::size_t) {
        auto* self = static_cast<BlockFile*>(stm->state);
        const std::int64_t position = stm->pos;
        Block& block = self->blockAt(ctx, position);
        const std::int64_t offset = position - block.start;
        if (offset >= static_cast<std::int64_t>(block.length)) {
            stm->rp = stm->wp = block.bytes.get();
            return EOF;
        }
        stm->rp = block.bytes.get() + offset;
        stm->wp = block.bytes.get() + block.length;
        stm->pos = block.start + static_cast<std::int64_t>(block.length);
        return *stm->rp++;
    }

    static void seek(fz_context* ctx, fz_stream* stm, std::int64_t offset, int whence) {
        auto* self = static_cast<BlockFile*>(stm->state);
        std::int64_t target = offset;
        if (whence == SEEK_CUR) target += stm->pos - (stm->wp - stm->rp);
        if (whence == SEEK_END) target += self->size_;
        if (target < 0) fz_throw(ctx, FZ_ERROR_GENERIC, "cannot seek: %s", std::strerror(EINVAL));
        stm->pos = target;
        stm->rp = stm->wp = nullptr;
    }

    static void drop(fz_context*, void* state) { delete static_cast<BlockFile*>(state); }

    FileHandle file_;
    std::int64_t size_;
    std::size_t blockSize_;  // what a block holds: kBlockSize, or the whole of a smaller file
    std::vector<Block> blocks_;
    std::uint64_t clock_ = 0;
};

// A new file written in large pieces through MuPDF's buffer, which keeps
// count of its own position: MuPDF's file output asks the system where it is
// (a seek) for every object it writes.
class FileOutput {
public:
    // Throws MuPDF's error when the file cannot be made; one that is there
    // already is never written over.
    static fz_output* create(fz_context* ctx, const std::filesystem::path& path) {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0) fz_throw(ctx, FZ_ERROR_GENERIC, "cannot open file '%s': %s", path.c_str(), std::strerror(errno));
        auto* state = new (std::nothrow) FileOutput(fd);
        if (!state) {
            ::close(fd);
            fz_throw(ctx, FZ_ERROR_MEMORY, "out of memory");
        }
        fz_output* out = fz_new_output(ctx, kBufferSize, state, write, close, drop);  // drops the state when it fails
        out->tell = tell;
        return out;
    }

private:
    static constexpr int kBufferSize = 64 * 1024;

    explicit FileOutput(int file) : fd(file) {}

    static void write(fz_context* ctx, void* state, const void* data, std::size_t size) {
        auto* self = static_cast<FileOutput*>(state);
        const auto* bytes = static_cast<const char*>(data);
        while (size > 0) {
            const ssize_t put = ::write(self->fd, bytes, size);
            if (put < 0 && errno == EINTR) continue;
            if (put < 0) fz_throw(ctx, FZ_ERROR_GENERIC, "cannot write: %s", std::strerror(errno));
            bytes += put;
            size -= static_cast<std::size_t>(put);
            self->written += put;
        }
    }
    static std::int64_t tell(fz_context*, void* state) { return static_cast<FileOutput*>(state)->written; }
    static void close(fz_context* ctx, void* state) {
        auto* self = static_cast<FileOutput*>(state);
        const int fd = std::exchange(self->fd, -1);
        if (::close(fd) != 0) fz_throw(ctx, FZ_ERROR_GENERIC, "cannot close file: %s", std::strerror(errno));
    }
    static void drop(fz_context*, void* state) {
        auto* self = static_cast<FileOutput*>(state);
        if (self->fd >= 0) ::close(self->fd);
        delete self;
    }

    int fd;
    std::int64_t written = 0;
};

// Writes a document whole into a new file.
void writeNewFile(fz_context* ctx, pdf_document* pdf, const std::filesystem::path& path) {
    fz_output* out = FileOutput::create(ctx, path);
    fz_try(ctx) {
        pdf_write_options options = pdf_default_write_options;
        pdf_write_document(ctx, pdf, out, &options);
        fz_close_output(ctx, out);
    }
    fz_always(ctx) fz_drop_output(ctx, out);
    fz_catch(ctx) fz_rethrow(ctx);
}

// The pages MuPDF's page map takes from a tree it mapped without error: a
// node whose kids are as many as its count are taken for pages as they are.
// Each node is counted at most once per object the file holds, so a tree
// that shares its nodes costs no more than the file.
int mappedPages(fz_context* ctx, pdf_obj* node, int& budget) {
    if (--budget < 0 || !pdf_name_eq(ctx, pdf_dict_get(ctx, node, PDF_NAME(Type)), PDF_NAME(Pages))) return 1;
    pdf_obj* kids = pdf_dict_get(ctx, node, PDF_NAME(Kids));
    const int n = pdf_array_len(ctx, kids);
    if (n == pdf_dict_get_int(ctx, node, PDF_NAME(Count))) return n;
    int pages = 0;
    for (int i = 0; i < n && budget >= 0; ++i) pages += mappedPages(ctx, pdf_array_get(ctx, kids, i), budget);
    return pages;
}

// Maps a source's page tree, for pages found in constant time. A tree that
// cannot be mapped whole (a page object lost to a broken cross-reference
// table) is mapped again once the file is repaired, when MuPDF has not
// repaired it yet. False when it still cannot be: the pages are then found
// one by one, as far as they can be. Throws MuPDF's error when not even the
// first page can be found. A tree with fewer pages than its count claims is
// not mapped either: MuPDF would leave the rest of its map unset.
bool mapPageTree(fz_context* ctx, pdf_document* pdf, bool repairFirst = false) {
    fz_try(ctx) {
        if (repairFirst) pdf_repair_xref(ctx, pdf);
        pdf_load_page_tree(ctx, pdf);
        int budget = pdf_xref_len(ctx, pdf);
        if (mappedPages(ctx, pdf_dict_getp(ctx, pdf_trailer(ctx, pdf), "Root/Pages"), budget) !=
            pdf_count_pages(ctx, pdf)) {
            pdf_drop_page_tree(ctx, pdf);
            fz_throw(ctx, FZ_ERROR_GENERIC, "page tree holds fewer pages than its count");
        }
    }
    fz_catch(ctx) {
        if (!repairFirst && !pdf->repair_attempted) {
            pdf->repair_attempted = 1;
            return mapPageTree(ctx, pdf, true);
        }
        if (pdf_count_pages(ctx, pdf) <= 0) fz_rethrow(ctx);
        pdf_lookup_page_obj(ctx, pdf, 0);
        return false;
    }
    return true;
}

// A MuPDF context of a host's own. Contexts that share nothing need no
// locks: hosts on several threads then never wait on each other, not even
// for memory, which MuPDF would otherwise take under one lock for all.
fz_context* newContext() {
    fz_context* ctx = fz_new_context(nullptr, nullptr, FZ_STORE_DEFAULT);
    if (!ctx) return nullptr;
    // MuPDF writes its warnings and errors to stderr by default; the library
    // reports failures through HostError only.
    fz_set_warning_callback(
        ctx, [](void*, const char*) {}, nullptr);
    fz_set_error_callback(
        ctx, [](void*, const char*) {}, nullptr);
    return ctx;
}

}  // namespace

// What a host read from a page's image: the words of its text (OCR), then
// its codes, each with its box as drawn.
struct ImagePage {
    std::vector<std::pair<Word, fz_rect>> words;
    bool textRead = false;  // its text was read (OCR)
    bool blank = false;     // it showed almost nothing, where that was asked
};

// A page rendered grey to be read, and how its pixels map to the page.
struct RenderedPage {
    GreyRaster raster;
    fz_matrix toUser = fz_identity;  // the page as drawn, in points, to PDF user space
    float originX = 0, originY = 0;  // the raster's first pixel, in pixels of the page as drawn
    float scale = 1;                 // pixels a point

    // A pixel's place on the page as drawn, in points.
    fz_point drawn(float x, float y) const { return fz_make_point((x + originX) / scale, (y + originY) / scale); }
};

struct MupdfHost::Impl {
    struct Document {
        pdf_document* pdf = nullptr;
        std::string path;
        std::map<int, pdf_graft_map*> graftMaps;  // by source document id
        std::optional<OutlineIndex> outline;      // read when first carried
        bool pageMap = false;                     // a source read through the page map: pages found in constant time
        int pages = -1;                           // a source's page count, once known (sources are never changed)
        SourceAnnotations annotationsRead;        // what a source's annotations lead to, as far as asked
        std::vector<AnnotationCarrier::Range> grafted;   // a target's pages, by where they came from
        std::unique_ptr<AnnotationCarrier> annotations;  // a target's carried annotations, once it has any
        // What was read from a page's image, with the words' boxes as
        // drawn: a page is read once.
        std::map<int, ImagePage> imagePages;
        std::map<int, std::shared_ptr<const TextLayer>> layers;  // placed for a text layer, when asked
        std::string imageKey;                                    // the settings `imagePages` were read with
    };

    const TextRecognition* recognition = nullptr;  // the host's own settings
    std::unique_ptr<TextRecognizer> recognizer;
    std::string recognizerKey;  // what `recognizer` was made for
    std::unique_ptr<CodeReader> codeReader;
    std::string codeReaderKey;  // what `codeReader` was made for

    fz_context* ctx = nullptr;
    std::map<int, Document> documents;
    int nextId = 1;
    int current = 0;
    unsigned saves = 0;  // numbers the temporary files of this host's saves

    Impl() {
        ctx = newContext();
        if (!ctx) throw HostError(HostError::kGeneric, "cannot create MuPDF context");
    }

    ~Impl() {
        for (auto& [id, doc] : documents) release(doc);
        fz_drop_context(ctx);
    }

    void release(Document& doc) {
        doc.annotations.reset();
        doc.annotationsRead.release(ctx);
        for (auto& [source, map] : doc.graftMaps) pdf_drop_graft_map(ctx, map);
        doc.graftMaps.clear();
        if (doc.pageMap) pdf_drop_page_tree(ctx, doc.pdf);
        pdf_drop_document(ctx, doc.pdf);
        doc.pdf = nullptr;
    }

    template <typename Body>
    void guarded(Body&& body) {
        mupdfGuarded(ctx, std::forward<Body>(body));
    }

    // Calls `body` with a 0-based page loaded, under a page look-up and the
    // guard; the page is dropped however `body` ends. `body` runs inside a
    // MuPDF try block: it may throw through MuPDF only. Throws HostError.
    template <typename Body>
    void withPage(Document& doc, int pageNumber, Body&& body) {
        const PageLookup lookup(*this, doc, pageNumber);
        guarded([&] {
            fz_page* page = fz_load_page(ctx, &doc.pdf->super, pageNumber);
            fz_try(ctx) body(page);
            fz_always(ctx) fz_drop_page(ctx, page);
            fz_catch(ctx) fz_rethrow(ctx);
        });
    }

    // The matrix from a page's PDF user space to the page as drawn (points,
    // origin top-left, rotation applied).
    fz_matrix drawnFromUser(fz_page* page) {
        fz_rect mediabox;
        fz_matrix ctm;
        pdf_page_transform(ctx, pdf_page_from_fz_page(ctx, page), &mediabox, &ctm);
        return ctm;
    }

    // MuPDF 1.21 answers every look-up of a page through the page map (a page
    // loaded, grafted, or asked its rotation) with a reference to the page
    // object that nobody gives back: each page read would stay in memory
    // until the process ends, long after its document is closed. Held around
    // such a look-up, a PageLookup gives back whatever references the page
    // object gained in the meantime.
    class PageLookup {
    public:
        PageLookup(Impl& impl, const Document& doc, int page) : ctx_(impl.ctx) {
#if FZ_VERSION_MAJOR == 1 && FZ_VERSION_MINOR <= 21
            pdf_document* pdf = doc.pdf;
            if (!pdf->fwd_page_map || page < 0 || page >= pdf->map_page_count) return;
            try {
                impl.guarded([&] { object_ = pdf_load_object(ctx_, pdf, pdf->fwd_page_map[page]); });
            } catch (const HostError&) {
                return;  // the look-up itself reports it
            }
            refs_ = pdf_obj_refs(ctx_, object_);
#else
            (void)impl, (void)doc, (void)page;
#endif
        }
        ~PageLookup() {
            if (!object_) return;
            for (int gained = pdf_obj_refs(ctx_, object_) - refs_; gained > 0; --gained) pdf_drop_obj(ctx_, object_);
            pdf_drop_obj(ctx_, object_);
        }
        PageLookup(const PageLookup&) = delete;
        PageLookup& operator=(const PageLookup&) = delete;

    private:
        fz_context* ctx_;
        pdf_obj* object_ = nullptr;
        int refs_ = 0;
    };

    Document& document(DocHandle handle) {
        const auto it = documents.find(handle.id);
        if (it == documents.end()) throw HostError(HostError::kArgument, "no such document");
        return it->second;
    }

    int pageCount(Document& doc) {
        if (doc.pages >= 0) return doc.pages;
        int count = 0;
        guarded([&] { count = pdf_count_pages(ctx, doc.pdf); });
        if (doc.pageMap) doc.pages = count;
        return count;
    }

    void checkPage(Document& doc, int page) {
        if (page < 0 || page >= pageCount(doc))
            throw HostError(HostError::kArgument, "invalid page number: " + std::to_string(page + 1));
    }

    // The dictionary of an outline item; throws for a broken outline.
    pdf_obj* outlineItem(BookmarkHandle bookmark) {
        Document& doc = document(bookmark.doc);
        pdf_obj* item = nullptr;
        guarded([&] {
            if (bookmark.item == kDirectOutlineRoot) {
                item = pdf_dict_getp(ctx, pdf_trailer(ctx, doc.pdf), "Root/Outlines");
            } else if (bookmark.item > 0 && bookmark.item < pdf_xref_len(ctx, doc.pdf)) {
                // The document keeps the object it loaded; one that cannot
                // be loaded is no dictionary.
                fz_try(ctx) {
                    item = pdf_load_object(ctx, doc.pdf, bookmark.item);
                    pdf_drop_obj(ctx, item);
                }
                fz_catch(ctx) item = nullptr;
            }
        });
        if (!pdf_is_dict(ctx, item)) throw HostError(HostError::kSyntax, "outline item is not a dictionary");
        return item;
    }

    // The handle of the item a link (/First, /Next) of `from` names.
    BookmarkHandle linkedItem(BookmarkHandle from, pdf_obj* key) {
        pdf_obj* item = outlineItem(from);
        pdf_obj* link = nullptr;
        guarded([&] { link = pdf_dict_get(ctx, item, key); });
        if (!link) return {from.doc, 0};
        if (!pdf_is_indirect(ctx, link)) throw HostError(HostError::kSyntax, "outline item is not an indirect object");
        const BookmarkHandle next{from.doc, pdf_to_num(ctx, link)};
        outlineItem(next);  // a link to anything but a dictionary is a broken outline
        return next;
    }

    // The whole outline of a source document with every item's page (-1 when
    // it points nowhere or cannot be read), read once per document. A cycle
    // ends the walk where it closes.
    const OutlineIndex& outlineOf(MupdfHost& host, DocHandle handle) {
        Document& doc = document(handle);
        if (doc.outline) return *doc.outline;
        doc.outline.emplace();
        try {
            if (const BookmarkHandle root = host.bookmarkRoot(handle)) {
                std::set<int> seen;
                readOutline(host, root, -1, 0, seen, *doc.outline);
            }
        } catch (const HostError&) {
            // A broken outline keeps the bookmarks read before the break.
        }
        doc.outline->seal();
        return *doc.outline;
    }

    void readOutline(MupdfHost& host, BookmarkHandle parent, int parentIndex, int depth, std::set<int>& seen,
                     OutlineIndex& out) {
        if (depth > kMaxOutlineDepth) return;
        for (BookmarkHandle item = host.firstChild(parent); item; item = host.nextSibling(item)) {
            if (!seen.insert(item.item).second) return;
            int page = -1;
            try {
                page = host.bookmarkPage(item);
            } catch (const HostError&) {
                page = -1;
            }
            const int index = out.add(host.bookmarkTitle(item), page, parentIndex);
            readOutline(host, item, index, depth + 1, seen, out);
        }
    }

    // Every word of a 0-based page in MuPDF's reading order (the callback
    // may take the word's text), with (kBoxes)
    // the box it covers on the page as drawn (points, origin top-left, rotation
    // applied), until `onWord` answers false. Words are maximal runs of
    // non-blank characters within MuPDF's lines; a word's h, v are the
    // bottom-left corner of its first character in PDF user space.
    template <bool kBoxes, typename OnWord>
    void walkWords(Document& doc, int pageNumber, OnWord&& onWord) {
        checkPage(doc, pageNumber);
        using Pages = TextRecognition::Pages;
        const Pages ocr = recognition && recognition->make ? recognition->pages : Pages::Off;
        const Pages codes = recognition && recognition->codes.make ? recognition->codes.pages : Pages::Off;
        unsigned number = 0;
        if (ocr != Pages::All && !textWords<kBoxes>(doc, pageNumber, number, onWord)) return;
        const bool readText = ocr == Pages::All || (ocr == Pages::WithoutText && number == 0);
        const bool readCodes = codes == Pages::All || (codes == Pages::WithoutText && number == 0);
        if (readText || readCodes) imageWords(doc, pageNumber, readText, readCodes, number, onWord);
    }

    // The words of a page's text layer, numbered from `number` on; false when
    // `onWord` stopped them.
    template <bool kBoxes, typename OnWord>
    bool textWords(Document& doc, int pageNumber, unsigned& number, OnWord&& onWord) {
        fz_stext_page* text = nullptr;
        fz_matrix toUser = fz_identity;
        withPage(doc, pageNumber, [&](fz_page* page) {
            toUser = fz_invert_matrix(drawnFromUser(page));
            fz_stext_options options = {};
            text = fz_new_stext_page_from_page(ctx, page, &options);
        });
        const auto drop = [this](fz_stext_page* page) { fz_drop_stext_page(ctx, page); };
        const std::unique_ptr<fz_stext_page, decltype(drop)> owned(text, drop);

        Word word;
        word.page = pageNumber;
        fz_rect box = fz_empty_rect;
        char utf8[FZ_UTFMAX];
        for (fz_stext_block* block = text->first_block; block; block = block->next) {
            if (block->type != FZ_STEXT_BLOCK_TEXT) continue;
            for (fz_stext_line* line = block->u.t.first_line; line; line = line->next) {
                for (fz_stext_char* ch = line->first_char;; ch = ch->next) {
                    if (!ch || isBlank(ch->c)) {
                        if (!word.text.empty()) {
                            word.number = static_cast<std::uint16_t>(number++ & 0xFFFF);
                            if (!onWord(word, static_cast<const fz_rect&>(box))) return false;
                            word.text.clear();
                        }
                        if (!ch) break;
                        continue;
                    }
                    if (word.text.empty()) {
                        const fz_point corner = fz_transform_point(ch->quad.ll, toUser);
                        word.h = truncateCoordinate(corner.x);
                        word.v = truncateCoordinate(corner.y);
                        if constexpr (kBoxes) box = fz_rect_from_quad(ch->quad);
                    } else if constexpr (kBoxes) {
                        box = fz_union_rect(box, fz_rect_from_quad(ch->quad));
                    }
                    if (ch->c < 0x80)
                        word.text.push_back(static_cast<char>(ch->c));
                    else
                        word.text.append(utf8, static_cast<std::size_t>(fz_runetochar(utf8, ch->c)));
                }
            }
        }
        return true;
    }

    // What `recognition` reads pages with: a page read with other settings
    // is read again.
    std::string imageKey() const {
        std::string key = recognition->key + "|" + recognition->codes.key + "|" +
                          std::to_string(static_cast<int>(recognition->pages)) +
                          std::to_string(static_cast<int>(recognition->codes.pages)) + (recognition->blank ? "b" : "");
        if (recognition->area)
            for (const float bound : *recognition->area) key += "|" + std::to_string(bound);
        return key;
    }

    // The words read from a page's image (its text, its codes or both), once,
    // numbered from `number` on. A page that draws nothing at all (a blank or
    // lost page) has nothing to read and is not read.
    template <typename OnWord>
    void imageWords(Document& doc, int pageNumber, bool readText, bool readCodes, unsigned number, OnWord&& onWord) {
        const ImagePage& page = imagePage(doc, pageNumber, readText, readCodes);
        for (auto [word, box] : page.words) {
            word.number = static_cast<std::uint16_t>(number++ & 0xFFFF);
            if (!onWord(word, static_cast<const fz_rect&>(box))) return;
        }
    }

    const ImagePage& imagePage(Document& doc, int pageNumber, bool readText, bool readCodes) {
        if (const std::string key = imageKey(); doc.imageKey != key) {
            doc.imagePages.clear();
            doc.layers.clear();
            doc.imageKey = key;
        }
        if (const auto found = doc.imagePages.find(pageNumber); found != doc.imagePages.end()) return found->second;
        ImagePage page;
        if (drawsNothing(doc, pageNumber)) {
            page.blank = true;
            return doc.imagePages.emplace(pageNumber, std::move(page)).first->second;
        }
        // Text is read at its resolution and the codes from the same image;
        // codes alone at theirs. A page read for its text where it must
        // stand is read there alone.
        const bool area = readText && recognition->area;
        const RenderedPage rendered = render(doc, pageNumber, readText ? recognition->dpi : recognition->codes.dpi,
                                             area ? recognition->area : std::nullopt);
        if (recognition->blank && !area && recognition->blank(rendered.raster)) {
            page.blank = true;
            return doc.imagePages.emplace(pageNumber, std::move(page)).first->second;
        }
        if (readText) {
            page.words = readTextOf(rendered, pageNumber, doc.layers[pageNumber]);
            page.textRead = true;
        }
        if (readCodes) {
            // Codes are read at their own resolution: a page rendered finer
            // for its text is shrunk to it first.
            const int factor = readText ? recognition->dpi / std::max(recognition->codes.dpi, 36) : 1;
            auto codes = readCodesOf(factor >= 2 ? shrunk(rendered, factor) : rendered, pageNumber);
            // What OCR made of a code's modules is no word.
            std::erase_if(page.words, [&](const std::pair<Word, fz_rect>& word) {
                const fz_point middle =
                    fz_make_point((word.second.x0 + word.second.x1) / 2, (word.second.y0 + word.second.y1) / 2);
                return std::any_of(codes.begin(), codes.end(),
                                   [&](const auto& code) { return fz_is_point_inside_rect(middle, code.second); });
            });
            for (auto& code : codes) page.words.push_back(std::move(code));
        }
        return doc.imagePages.emplace(pageNumber, std::move(page)).first->second;
    }

    bool drawsNothing(Document& doc, int pageNumber) {
        fz_rect marks = fz_empty_rect;
        withPage(doc, pageNumber, [&](fz_page* page) {
            fz_device* device = fz_new_bbox_device(ctx, &marks);
            fz_try(ctx) {
                fz_run_page(ctx, page, device, fz_identity, nullptr);
                fz_close_device(ctx, device);
            }
            fz_always(ctx) fz_drop_device(ctx, device);
            fz_catch(ctx) fz_rethrow(ctx);
        });
        return fz_is_empty_rect(marks);
    }

    // Renders a page (or an area of it, in PDF user space) in grey as it is
    // shown, at `dpi`.
    RenderedPage render(Document& doc, int pageNumber, int dpi, const std::optional<std::array<float, 4>>& area) {
        RenderedPage rendered;
        rendered.scale = static_cast<float>(std::clamp(dpi, 36, 1200)) / 72.0f;
        const float scale = rendered.scale;
        fz_pixmap* pixmap = nullptr;
        withPage(doc, pageNumber, [&](fz_page* page) {
            const fz_matrix ctm = drawnFromUser(page);
            rendered.toUser = fz_invert_matrix(ctm);
            if (area) {
                // The area alone: its pixels of the page as drawn.
                const auto& [x0, y0, x1, y1] = *area;
                const fz_rect drawnArea = fz_intersect_rect(
                    fz_transform_rect(fz_make_rect(x0, y0, x1, y1), fz_concat(ctm, fz_scale(scale, scale))),
                    fz_transform_rect(fz_bound_page(ctx, page), fz_scale(scale, scale)));
                pixmap = fz_new_pixmap_with_bbox(ctx, fz_device_gray(ctx), fz_round_rect(drawnArea), nullptr, 0);
                fz_clear_pixmap_with_value(ctx, pixmap, 255);
                fz_device* device = fz_new_draw_device(ctx, fz_identity, pixmap);
                fz_try(ctx) {
                    fz_run_page(ctx, page, device, fz_scale(scale, scale), nullptr);
                    fz_close_device(ctx, device);
                }
                fz_always(ctx) fz_drop_device(ctx, device);
                fz_catch(ctx) {
                    fz_drop_pixmap(ctx, pixmap);
                    fz_rethrow(ctx);
                }
            } else {
                pixmap = fz_new_pixmap_from_page(ctx, page, fz_scale(scale, scale), fz_device_gray(ctx), 0);
            }
        });
        GreyRaster& raster = rendered.raster;
        raster.width = fz_pixmap_width(ctx, pixmap);
        raster.height = fz_pixmap_height(ctx, pixmap);
        raster.dpi = static_cast<int>(scale * 72.0f + 0.5f);
        raster.wholePage = !area;
        rendered.originX = static_cast<float>(fz_pixmap_x(ctx, pixmap));
        rendered.originY = static_cast<float>(fz_pixmap_y(ctx, pixmap));
        const int stride = fz_pixmap_stride(ctx, pixmap);
        const unsigned char* samples = fz_pixmap_samples(ctx, pixmap);
        raster.pixels.resize(static_cast<std::size_t>(raster.width) * static_cast<std::size_t>(raster.height));
        for (int row = 0; row < raster.height; ++row)
            std::memcpy(raster.pixels.data() + static_cast<std::size_t>(row) * static_cast<std::size_t>(raster.width),
                        samples + static_cast<std::ptrdiff_t>(row) * stride, static_cast<std::size_t>(raster.width));
        fz_drop_pixmap(ctx, pixmap);
        // A scanned page's image, decoded, is of no use to the next page:
        // MuPDF's cache would otherwise hold megabytes of them per host.
        fz_empty_store(ctx);
        return rendered;
    }

    // A rendered page `factor` times coarser, each pixel the mean of the
    // pixels it covers.
    static RenderedPage shrunk(const RenderedPage& page, int factor) {
        RenderedPage coarse;
        coarse.toUser = page.toUser;
        coarse.scale = page.scale / static_cast<float>(factor);
        coarse.originX = page.originX / static_cast<float>(factor);
        coarse.originY = page.originY / static_cast<float>(factor);
        const GreyRaster& fine = page.raster;
        GreyRaster& raster = coarse.raster;
        raster.width = fine.width / factor;
        raster.height = fine.height / factor;
        raster.dpi = fine.dpi / factor;
        raster.wholePage = fine.wholePage;
        raster.pixels.resize(static_cast<std::size_t>(raster.width) * static_cast<std::size_t>(raster.height));
        std::vector<unsigned> sums(static_cast<std::size_t>(raster.width));
        for (int y = 0; y < raster.height; ++y) {
            std::fill(sums.begin(), sums.end(), 0u);
            for (int row = y * factor; row < (y + 1) * factor; ++row) {
                const unsigned char* line = fine.pixels.data() + static_cast<std::size_t>(row) * fine.width;
                for (int x = 0; x < raster.width; ++x)
                    for (int k = 0; k < factor; ++k) sums[x] += line[x * factor + k];
            }
            const unsigned area = static_cast<unsigned>(factor * factor);
            for (int x = 0; x < raster.width; ++x)
                raster.pixels[static_cast<std::size_t>(y) * raster.width + x] =
                    static_cast<unsigned char>(sums[x] / area);
        }
        return coarse;
    }

    // Makes a reader the first time one is needed, and again when what it
    // reads with changed; a reader that cannot be made fails the page.
    template <typename Reader, typename Make>
    Reader& readerFor(std::unique_ptr<Reader>& reader, std::string& readerKey, const std::string& key,
                      const Make& make) {
        if (!reader || readerKey != key) {
            reader.reset();
            try {
                reader = make();
            } catch (const std::exception& error) {
                throw HostError(HostError::kRecognition, error.what());
            }
            if (!reader) throw HostError(HostError::kRecognition, "no reader of page images");
            readerKey = key;
        }
        return *reader;
    }

    // The words of a rendered page's text; their places go from the image's
    // pixels to the page's points as drawn, and from there to PDF user space
    // as a text word's are.
    std::vector<std::pair<Word, fz_rect>> readTextOf(const RenderedPage& rendered, int pageNumber,
                                                     std::shared_ptr<const TextLayer>& layer) {
        TextRecognizer& reader = readerFor(recognizer, recognizerKey, recognition->key, recognition->make);
        std::vector<RecognizedWord> read;
        try {
            read = reader.read(rendered.raster);
        } catch (const std::exception& error) {
            throw HostError(HostError::kRecognition, error.what());
        }
        const fz_matrix& toUser = rendered.toUser;
        if (recognition->textLayer) {
            // Each word's baseline and height in user space, as the page's
            // own text would be placed.
            auto placed = std::make_shared<TextLayer>();
            for (const auto& each : read) {
                const fz_point start = fz_transform_point(rendered.drawn(each.baseX, each.baseY), toUser);
                const fz_point end = fz_transform_point(rendered.drawn(each.endX, each.endY), toUser);
                const fz_point low = rendered.drawn(each.x0, each.y0);
                const fz_point high = rendered.drawn(each.x1, each.y1);
                const fz_rect box = fz_transform_rect(fz_make_rect(low.x, low.y, high.x, high.y), toUser);
                const bool upright = std::abs(end.x - start.x) >= std::abs(end.y - start.y);
                const float size = upright ? box.y1 - box.y0 : box.x1 - box.x0;
                placed->push_back({each.text, start.x, start.y, end.x - start.x, end.y - start.y, size});
            }
            layer = std::move(placed);
        }
        std::vector<std::pair<Word, fz_rect>> words;
        words.reserve(read.size());
        for (auto& each : read) {
            Word word;
            word.text = std::move(each.text);
            word.page = pageNumber;
            word.confidence = static_cast<std::int8_t>(std::clamp(each.confidence, 0, 100));
            const fz_point corner = fz_transform_point(rendered.drawn(each.baseX, each.baseY), toUser);
            word.h = truncateCoordinate(corner.x);
            word.v = truncateCoordinate(corner.y);
            const fz_point low = rendered.drawn(each.x0, each.y0);
            const fz_point high = rendered.drawn(each.x1, each.y1);
            words.emplace_back(std::move(word), fz_make_rect(low.x, low.y, high.x, high.y));
        }
        return words;
    }

    // The codes on a rendered page as words: each code's value, at the
    // bottom-left corner of its box in PDF user space.
    std::vector<std::pair<Word, fz_rect>> readCodesOf(const RenderedPage& rendered, int pageNumber) {
        const auto& codes = recognition->codes;
        CodeReader& reader = readerFor(codeReader, codeReaderKey, codes.key, codes.make);
        std::vector<FoundCode> found;
        try {
            found = reader.read(rendered.raster);
        } catch (const std::exception& error) {
            throw HostError(HostError::kRecognition, error.what());
        }
        std::vector<std::pair<Word, fz_rect>> words;
        for (auto& code : found) {
            if (code.text.empty()) continue;
            const fz_point low = rendered.drawn(code.x0, code.y0);
            const fz_point high = rendered.drawn(code.x1, code.y1);
            const fz_rect drawnBox = fz_make_rect(low.x, low.y, high.x, high.y);
            const fz_rect user = fz_transform_rect(drawnBox, rendered.toUser);
            Word word;
            // A value is one word however it is written: blanks in it are
            // kept as they are, control characters dropped.
            for (const char c : code.text)
                if (static_cast<unsigned char>(c) >= 32 && c != 127) word.text.push_back(c);
            if (word.text.empty()) continue;
            word.page = pageNumber;
            word.h = truncateCoordinate(user.x0);
            word.v = truncateCoordinate(user.y0);
            word.code = code.format;
            words.emplace_back(std::move(word), drawnBox);
        }
        return words;
    }

    // Appends carried bookmarks under `parent`; `pageShift` maps a source page
    // to its page in the target.
    void appendOutline(pdf_document* pdf, pdf_obj* parent, const std::vector<CarriedBookmark>& nodes, int pageShift) {
        for (const auto& node : nodes) {
            pdf_obj* item = pdf_add_new_dict(ctx, pdf, 6);
            pdf_dict_put_text_string(ctx, item, PDF_NAME(Title), node.title.c_str());
            pdf_dict_put(ctx, item, PDF_NAME(Parent), parent);
            pdf_obj* dest = pdf_dict_put_array(ctx, item, PDF_NAME(Dest), 2);
            pdf_array_push(ctx, dest, pdf_lookup_page_obj(ctx, pdf, node.page + pageShift));
            pdf_array_push(ctx, dest, PDF_NAME(Fit));
            if (pdf_obj* last = pdf_dict_get(ctx, parent, PDF_NAME(Last))) {
                pdf_dict_put(ctx, last, PDF_NAME(Next), item);
                pdf_dict_put(ctx, item, PDF_NAME(Prev), last);
            } else {
                pdf_dict_put(ctx, parent, PDF_NAME(First), item);
            }
            pdf_dict_put(ctx, parent, PDF_NAME(Last), item);
            if (!node.children.empty()) {
                appendOutline(pdf, item, node.children, pageShift);
                pdf_dict_put_int(ctx, item, PDF_NAME(Count), countCarried(node.children));
            }
            pdf_drop_obj(ctx, item);
        }
    }
};

std::string mupdfVersion() { return FZ_VERSION; }

MupdfHost::MupdfHost() : impl_(std::make_unique<Impl>()) { impl_->recognition = &recognition_; }

bool MupdfHost::pageRecognized(DocHandle doc, int page) {
    const auto& pages = impl_->document(doc).imagePages;
    const auto found = pages.find(page);
    return found != pages.end() && found->second.textRead;
}

bool MupdfHost::pageBlank(DocHandle handle, int page) {
    if (!recognition_.blank) return false;
    auto& doc = impl_->document(handle);
    impl_->checkPage(doc, page);
    // A page without words that nothing read from its image yet is looked at
    // for this alone, as codes are.
    return impl_->imagePage(doc, page, false, false).blank;
}

std::shared_ptr<const TextLayer> MupdfHost::recognizedLayer(DocHandle doc, int page) {
    const auto& layers = impl_->document(doc).layers;
    const auto found = layers.find(page);
    return found == layers.end() ? nullptr : found->second;
}

void MupdfHost::addTextLayer(DocHandle target, int page, const TextLayer& layer) {
    if (layer.empty()) return;
    fz_context* ctx = impl_->ctx;
    auto& doc = impl_->document(target);
    impl_->checkPage(doc, page);
    // Invisible text (render mode 3) in Helvetica, each word scaled along its
    // baseline to the length it covers, drawn before the page's own content.
    std::string content = "q BT 3 Tr\n";
    char placing[200];
    for (const PlacedWord& word : layer) {
        const float length = std::hypot(word.dx, word.dy);
        std::string text;  // Windows-1252 (Latin-1 here) as the font's encoding reads it
        int characters = 0;
        for (const char* at = word.text.c_str(); *at; ++characters) {
            int rune = 0;
            at += fz_chartorune(&rune, at);
            const char byte = rune >= 0x20 && rune < 0x100 ? static_cast<char>(rune) : '?';
            if (byte == '(' || byte == ')' || byte == '\\') text.push_back('\\');
            text.push_back(byte);
        }
        if (characters == 0 || length <= 0) continue;
        const float size = std::max(word.size, 1.0f);
        // Helvetica's mean width is about half its size a character.
        const float natural = 0.5f * size * static_cast<float>(characters);
        std::snprintf(placing, sizeof placing, "/VelliraOcr %.2f Tf %.2f Tz %.4f %.4f %.4f %.4f %.2f %.2f Tm (", size,
                      100.0f * length / natural, word.dx / length, word.dy / length, -word.dy / length,
                      word.dx / length, word.x, word.y);
        content.append(placing).append(text).append(") Tj\n");
    }
    content.append("ET Q\n");
    impl_->guarded([&] {
        pdf_obj* pageObj = pdf_lookup_page_obj(ctx, doc.pdf, page);
        pdf_obj* font = pdf_add_new_dict(ctx, doc.pdf, 4);
        pdf_dict_put(ctx, font, PDF_NAME(Type), PDF_NAME(Font));
        pdf_dict_put(ctx, font, PDF_NAME(Subtype), PDF_NAME(Type1));
        pdf_dict_put_name(ctx, font, PDF_NAME(BaseFont), "Helvetica");
        pdf_dict_put(ctx, font, PDF_NAME(Encoding), PDF_NAME(WinAnsiEncoding));
        // The page's resources as a dictionary of its own: other pages may
        // share the ones it has.
        pdf_obj* inherited = pdf_dict_get_inheritable(ctx, pageObj, PDF_NAME(Resources));
        pdf_obj* resources =
            pdf_is_dict(ctx, inherited) ? pdf_copy_dict(ctx, inherited) : pdf_new_dict(ctx, doc.pdf, 2);
        pdf_dict_put_drop(ctx, pageObj, PDF_NAME(Resources), resources);
        pdf_obj* fonts = pdf_dict_get(ctx, resources, PDF_NAME(Font));
        fonts = pdf_is_dict(ctx, fonts) ? pdf_copy_dict(ctx, fonts) : pdf_new_dict(ctx, doc.pdf, 1);
        pdf_dict_put_drop(ctx, resources, PDF_NAME(Font), fonts);
        pdf_dict_puts_drop(ctx, fonts, "VelliraOcr", font);
        fz_buffer* buffer =
            fz_new_buffer_from_copied_data(ctx, reinterpret_cast<const unsigned char*>(content.data()), content.size());
        pdf_obj* layerStream = nullptr;
        fz_try(ctx) layerStream = pdf_add_stream(ctx, doc.pdf, buffer, nullptr, 0);
        fz_always(ctx) fz_drop_buffer(ctx, buffer);
        fz_catch(ctx) fz_rethrow(ctx);
        pdf_obj* old = pdf_dict_get(ctx, pageObj, PDF_NAME(Contents));
        pdf_obj* contents = pdf_new_array(ctx, doc.pdf, 2);
        pdf_array_push_drop(ctx, contents, layerStream);
        if (pdf_is_array(ctx, old))
            for (int i = 0; i < pdf_array_len(ctx, old); ++i) pdf_array_push(ctx, contents, pdf_array_get(ctx, old, i));
        else if (old)
            pdf_array_push(ctx, contents, old);
        pdf_dict_put_drop(ctx, pageObj, PDF_NAME(Contents), contents);
    });
}
MupdfHost::~MupdfHost() = default;

void MupdfHost::setCurrentDocument(DocHandle doc) {
    impl_->document(doc);
    impl_->current = doc.id;
}

std::optional<ViewHandle> MupdfHost::activeViewDocument() {
    if (!impl_->current) return std::nullopt;
    return ViewHandle{impl_->current};
}

DocHandle MupdfHost::documentOfView(ViewHandle view) {
    impl_->document(DocHandle{view.id});
    return DocHandle{view.id};
}

std::string MupdfHost::filePath(DocHandle doc) { return impl_->document(doc).path; }

DocHandle MupdfHost::openFile(const std::filesystem::path& path, bool makeCurrent) {
    fz_context* ctx = impl_->ctx;
    const std::string name = pathText(path);
    pdf_document* pdf = nullptr;
    bool locked = false;
    bool pageMap = false;
    try {
        impl_->guarded([&] {
            fz_stream* file = BlockFile::open(ctx, path);
            fz_try(ctx) pdf = pdf_open_document_with_stream(ctx, file);
            fz_always(ctx) fz_drop_stream(ctx, file);
            fz_catch(ctx) fz_rethrow(ctx);
            if (pdf_needs_password(ctx, pdf) && !pdf_authenticate_password(ctx, pdf, "")) {
                locked = true;
            } else {
                // A page count the file's objects cannot hold is not believed:
                // a page map is as large as the count claims, whatever the
                // file holds, so such a file is read page by page instead.
                // A page tree that cannot be mapped (pages cut off, more kids
                // than its count) is read page by page too, as far as its
                // pages can be found. Sources are only read, so their page
                // map stays valid while they are open.
                const int claimed = pdf_count_pages(ctx, pdf);
                pageMap = claimed >= 0 && claimed <= pdf_xref_len(ctx, pdf) && mapPageTree(ctx, pdf);
                // What is read so far (the catalog, the page tree, every page
                // object) is kept for as long as the document is open: giving
                // memory back later drops only what the pages' contents
                // brought in.
                pdf_mark_xref(ctx, pdf);
            }
        });
    } catch (const HostError& error) {
        pdf_drop_document(ctx, pdf);
        // A file that cannot even be read gets the I/O code, with MuPDF's text.
        if (!std::ifstream(path, std::ios::binary)) throw HostError(HostError::kIo, error.text());
        throw;
    }
    if (locked) {
        pdf_drop_document(ctx, pdf);
        throw HostError(HostError::kNeedsPassword, "cannot authenticate password: " + name);
    }
    const int id = impl_->nextId++;
    impl_->documents[id] = Impl::Document{pdf, name, {}, {}, pageMap};
    if (makeCurrent) impl_->current = id;
    return DocHandle{id};
}

DocHandle MupdfHost::createDocument() {
    pdf_document* pdf = nullptr;
    impl_->guarded([&] { pdf = pdf_create_document(impl_->ctx); });
    const int id = impl_->nextId++;
    impl_->documents[id] = Impl::Document{pdf, {}, {}, {}, false};
    return DocHandle{id};
}

void MupdfHost::insertPages(DocHandle target, DocHandle source, int firstPage, int count, bool bookmarks) {
    fz_context* ctx = impl_->ctx;
    auto& to = impl_->document(target);
    auto& from = impl_->document(source);
    const int sourcePages = impl_->pageCount(from);
    if (firstPage < 0 || count < 1 || firstPage > sourcePages - count)
        throw HostError(HostError::kArgument, "invalid page range: " + std::to_string(firstPage + 1) + "-" +
                                                  std::to_string(firstPage + count) + " of " +
                                                  std::to_string(sourcePages));
    pdf_graft_map*& map = to.graftMaps[source.id];
    const int base = impl_->pageCount(to);
    impl_->guarded([&] {
        if (!map) map = pdf_new_graft_map(ctx, to.pdf);
    });
    std::vector<int> annotated;  // source pages with annotations
    for (int page = firstPage; page < firstPage + count; ++page) {
        const Impl::PageLookup lookup(*impl_, from, page);
        bool hasAnnotations = false;
        impl_->guarded([&] {
            hasAnnotations = AnnotationCarrier::hasAnnotations(ctx, pdf_lookup_page_obj(ctx, from.pdf, page));
            pdf_graft_mapped_page(ctx, map, -1, from.pdf, page);
        });
        if (hasAnnotations) annotated.push_back(page);
    }
    to.grafted.push_back({source.id, firstPage, base, count});
    // Annotations once the whole range is in: links lead to pages after them.
    if (!annotated.empty() && !to.annotations) to.annotations = std::make_unique<AnnotationCarrier>(ctx);
    for (const int page : annotated) {
        // Looked up anew, and held: a file repaired while a page was grafted
        // holds its pages in objects of their own.
        const Impl::PageLookup lookup(*impl_, from, page);
        pdf_obj* object = nullptr;
        impl_->guarded([&] { object = pdf_keep_obj(ctx, pdf_lookup_page_obj(ctx, from.pdf, page)); });
        const std::unique_ptr<pdf_obj, std::function<void(pdf_obj*)>> held(
            object, [ctx](pdf_obj* kept) { pdf_drop_obj(ctx, kept); });
        to.annotations->carryPage(to.pdf, map, source.id, from.pdf, object, base + page - firstPage, to.grafted,
                                  from.annotationsRead);
    }
    if (!bookmarks) return;

    to.outline.reset();
    const std::vector<CarriedBookmark> carried =
        impl_->outlineOf(*this, source).inRange(firstPage, firstPage + count - 1);
    if (carried.empty()) return;
    impl_->guarded([&] {
        pdf_obj* catalog = pdf_dict_get(ctx, pdf_trailer(ctx, to.pdf), PDF_NAME(Root));
        pdf_obj* outlines = pdf_dict_get(ctx, catalog, PDF_NAME(Outlines));
        if (!outlines) {
            outlines = pdf_add_new_dict(ctx, to.pdf, 4);
            pdf_dict_put(ctx, outlines, PDF_NAME(Type), PDF_NAME(Outlines));
            pdf_dict_put_drop(ctx, catalog, PDF_NAME(Outlines), outlines);
        }
        impl_->appendOutline(to.pdf, outlines, carried, base - firstPage);
        pdf_dict_put_int(ctx, outlines, PDF_NAME(Count),
                         pdf_dict_get_int(ctx, outlines, PDF_NAME(Count)) + countCarried(carried));
    });
}

void MupdfHost::saveDocument(DocHandle doc, const std::filesystem::path& path) {
    fz_context* ctx = impl_->ctx;
    auto& document = impl_->document(doc);
    if (document.annotations) document.annotations->finish(document.pdf);
    if (isTemporaryName(path)) {
        // A temporary file of ours is nobody's output yet: written in place,
        // and removed when it could not be written whole.
        try {
            impl_->guarded([&] { writeNewFile(ctx, document.pdf, path); });
        } catch (const HostError&) {
            std::error_code ignored;
            std::filesystem::remove(path, ignored);
            throw;
        }
        return;
    }
    // Written beside the target under a short name of its own, then renamed
    // into place, so no reader ever sees half a PDF and a name the file
    // system takes for the output is never too long for the temporary file.
    std::filesystem::path temporary;
    std::error_code ignored;
    do {
        const auto unique = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(impl_.get()) >> 4) ^
                            (impl_->saves++ * 2654435761u);
        temporary = temporaryBeside(path, unique);
    } while (std::filesystem::exists(temporary, ignored));
    const std::string temporaryName = pathText(temporary);
    try {
        impl_->guarded([&] { writeNewFile(ctx, document.pdf, temporary); });
        std::error_code renamed;
        std::filesystem::rename(temporary, path, renamed);
        if (renamed) throw HostError(HostError::kIo, "cannot save '" + pathText(path) + "': " + renamed.message());
    } catch (const HostError& error) {
        std::filesystem::remove(temporary, ignored);
        // MuPDF names the file it was writing: the user knows the output.
        std::string text = error.text();
        replaceAll(text, temporaryName, pathText(path));
        throw HostError(error.code(), text);
    } catch (...) {
        std::filesystem::remove(temporary, ignored);
        throw;
    }
}

void MupdfHost::closeDocument(DocHandle doc) {
    auto it = impl_->documents.find(doc.id);
    if (it == impl_->documents.end()) return;
    impl_->release(it->second);
    impl_->documents.erase(it);
    if (impl_->current == doc.id) impl_->current = 0;
}

DocHandle MupdfHost::reopenDocument(DocHandle handle) {
    // Reading the file again would only rebuild what is kept: dropping the
    // objects read since the document was opened, which nothing else holds,
    // gives back the same memory at a fraction of the cost. The page tree
    // stays, so finding a page never means parsing it again.
    auto& doc = impl_->document(handle);
    impl_->guarded([&] { pdf_clear_xref_to_mark(impl_->ctx, doc.pdf); });
    return handle;
}

int MupdfHost::pageCount(DocHandle doc) { return impl_->pageCount(impl_->document(doc)); }

int MupdfHost::pageRotation(DocHandle handle, int page) {
    auto& doc = impl_->document(handle);
    impl_->checkPage(doc, page);
    fz_context* ctx = impl_->ctx;
    int rotate = 0;
    const Impl::PageLookup lookup(*impl_, doc, page);
    impl_->guarded([&] {
        pdf_obj* pageObj = pdf_lookup_page_obj(ctx, doc.pdf, page);
        rotate = pdf_to_int(ctx, pdf_dict_get_inheritable(ctx, pageObj, PDF_NAME(Rotate)));
    });
    rotate %= 360;
    return rotate < 0 ? rotate + 360 : rotate;
}

void MupdfHost::enumerateWords(DocHandle handle, int pageNumber, const WordCallback& onWord) {
    impl_->walkWords<false>(impl_->document(handle), pageNumber,
                            [&](const Word& word, const fz_rect&) { return onWord(word); });
}

void MupdfHost::appendWords(DocHandle handle, int pageNumber, std::vector<Word>& words) {
    impl_->walkWords<false>(impl_->document(handle), pageNumber, [&](Word& word, const fz_rect&) {
        words.push_back(std::move(word));
        return true;
    });
}

std::vector<MupdfHost::WordBox> MupdfHost::wordBoxes(DocHandle handle, int page) {
    std::vector<WordBox> boxes;
    impl_->walkWords<true>(impl_->document(handle), page, [&](const Word& word, const fz_rect& box) {
        boxes.push_back({word, box.x0, box.y0, box.x1, box.y1});
        return true;
    });
    return boxes;
}

MupdfHost::PageImage MupdfHost::renderPage(DocHandle handle, int pageNumber, float zoom) {
    fz_context* ctx = impl_->ctx;
    auto& doc = impl_->document(handle);
    impl_->checkPage(doc, pageNumber);
    PageImage image;
    fz_pixmap* pixmap = nullptr;
    impl_->withPage(doc, pageNumber, [&](fz_page* page) {
        pixmap = fz_new_pixmap_from_page(ctx, page, fz_scale(zoom, zoom), fz_device_rgb(ctx), 0);
    });
    image.width = fz_pixmap_width(ctx, pixmap);
    image.height = fz_pixmap_height(ctx, pixmap);
    const int stride = fz_pixmap_stride(ctx, pixmap);
    const unsigned char* samples = fz_pixmap_samples(ctx, pixmap);
    image.pixels.resize(static_cast<std::size_t>(image.width) * image.height * 3);
    for (int row = 0; row < image.height; ++row)
        std::memcpy(image.pixels.data() + static_cast<std::size_t>(row) * image.width * 3,
                    samples + static_cast<std::size_t>(row) * stride, static_cast<std::size_t>(image.width) * 3);
    fz_drop_pixmap(ctx, pixmap);
    return image;
}

std::pair<float, float> MupdfHost::pageSize(DocHandle handle, int pageNumber) {
    fz_context* ctx = impl_->ctx;
    auto& doc = impl_->document(handle);
    impl_->checkPage(doc, pageNumber);
    fz_rect bounds = fz_empty_rect;
    impl_->withPage(doc, pageNumber, [&](fz_page* page) { bounds = fz_bound_page(ctx, page); });
    return {bounds.x1 - bounds.x0, bounds.y1 - bounds.y0};
}

BookmarkHandle MupdfHost::bookmarkRoot(DocHandle handle) {
    fz_context* ctx = impl_->ctx;
    auto& doc = impl_->document(handle);
    pdf_obj* outlines = nullptr;
    impl_->guarded([&] { outlines = pdf_dict_getp(ctx, pdf_trailer(ctx, doc.pdf), "Root/Outlines"); });
    if (!outlines) return {handle, 0};
    const BookmarkHandle root{handle, pdf_is_indirect(ctx, outlines) ? pdf_to_num(ctx, outlines) : kDirectOutlineRoot};
    impl_->outlineItem(root);
    return root;
}

BookmarkHandle MupdfHost::firstChild(BookmarkHandle bookmark) { return impl_->linkedItem(bookmark, PDF_NAME(First)); }

BookmarkHandle MupdfHost::nextSibling(BookmarkHandle bookmark) { return impl_->linkedItem(bookmark, PDF_NAME(Next)); }

std::string MupdfHost::bookmarkTitle(BookmarkHandle bookmark) {
    pdf_obj* item = impl_->outlineItem(bookmark);
    const char* title = "";
    impl_->guarded([&] { title = pdf_dict_get_text_string(impl_->ctx, item, PDF_NAME(Title)); });
    return title ? title : "";
}

int MupdfHost::bookmarkIndent(BookmarkHandle bookmark) {
    fz_context* ctx = impl_->ctx;
    pdf_obj* item = impl_->outlineItem(bookmark);
    // Top-level items have the outline root as parent: indent 0.
    int indent = -1;
    impl_->guarded([&] {
        for (pdf_obj* parent = pdf_dict_get(ctx, item, PDF_NAME(Parent)); pdf_is_dict(ctx, parent);
             parent = pdf_dict_get(ctx, parent, PDF_NAME(Parent))) {
            if (++indent > kMaxOutlineDepth) fz_throw(ctx, FZ_ERROR_SYNTAX, "outline parents form a cycle");
        }
    });
    return indent < 0 ? 0 : indent;
}

int MupdfHost::bookmarkPage(BookmarkHandle bookmark) {
    fz_context* ctx = impl_->ctx;
    auto& doc = impl_->document(bookmark.doc);
    pdf_obj* item = impl_->outlineItem(bookmark);
    const int pages = impl_->pageCount(doc);
    int page = -1;
    bool points = false;
    impl_->guarded([&] {
        pdf_obj* dest = pdf_dict_get(ctx, item, PDF_NAME(Dest));
        if (!dest) {
            pdf_obj* action = pdf_dict_get(ctx, item, PDF_NAME(A));
            if (pdf_name_eq(ctx, pdf_dict_get(ctx, action, PDF_NAME(S)), PDF_NAME(GoTo)))
                dest = pdf_dict_get(ctx, action, PDF_NAME(D));
        }
        if (pdf_is_name(ctx, dest) || pdf_is_string(ctx, dest)) dest = pdf_lookup_dest(ctx, doc.pdf, dest);
        if (pdf_is_dict(ctx, dest)) dest = pdf_dict_get(ctx, dest, PDF_NAME(D));
        pdf_obj* target = pdf_array_get(ctx, dest, 0);
        if (pdf_is_int(ctx, target)) {
            points = true;
            page = pdf_to_int(ctx, target);
        } else if (pdf_is_dict(ctx, target)) {
            points = true;
            page = pdf_lookup_page_number(ctx, doc.pdf, target);
        }
    });
    // A destination that is no page of the document points nowhere.
    if (!points || page < 0 || page >= pages) return -1;
    return page;
}

}  // namespace vellira
