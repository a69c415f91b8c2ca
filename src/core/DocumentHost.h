// DocumentHost: every operation the split logic needs from a PDF host.
//
// The logic never touches a PDF file itself; it opens, reads, creates, fills
// and saves documents through this interface, so it runs the same against
// MuPDF (MupdfHost) and against a scripted host in tests. A failed host call
// throws HostError, carrying the host's code and its own error text.
#pragma once

#include "core/Platform.h"

#include <array>
#include <compare>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vellira {

// A failed host operation. `code` is the host's numeric error code, `text`
// the host's own description of the failure.
class HostError : public std::runtime_error {
public:
    // Codes every host uses for the failures the logic tells apart.
    static constexpr int kGeneric = 1;
    static constexpr int kSyntax = 2;         // damaged or not a PDF
    static constexpr int kNeedsPassword = 3;  // encrypted with a user password
    static constexpr int kArgument = 4;       // a page or handle out of range
    static constexpr int kIo = 5;             // the file could not be read or written
    static constexpr int kRecognition = 6;    // a page's image could not be read

    HostError(int code, std::string text) : std::runtime_error(text), code_(code), text_(std::move(text)) {}
    int code() const noexcept { return code_; }
    const std::string& text() const noexcept { return text_; }

private:
    int code_;
    std::string text_;
};

// Handles are small values owned by the host; 0 is "none".
struct DocHandle {
    int id = 0;
    explicit operator bool() const { return id != 0; }
    auto operator<=>(const DocHandle&) const = default;
};
struct ViewHandle {
    int id = 0;
    explicit operator bool() const { return id != 0; }
    auto operator<=>(const ViewHandle&) const = default;
};
// A bookmark (outline item) of a document. The root of a document's outline
// is itself a bookmark whose children are the top-level items.
struct BookmarkHandle {
    DocHandle doc;
    int item = 0;
    explicit operator bool() const { return item != 0; }
    auto operator<=>(const BookmarkHandle&) const = default;
};

// The kinds of code read from a page's image, and their names in settings
// and reports ("QRCode", "Code128", ...).
enum class CodeFormat : std::uint8_t {
    None,
    QRCode,
    DataMatrix,
    Code128,
    Code39,
    EAN13,
    EAN8,
    UPCA,
    UPCE,
    ITF,
    PDF417,
    Aztec,
};
inline constexpr std::array<std::string_view, 12> kCodeFormatNames = {
    "", "QRCode", "DataMatrix", "Code128", "Code39", "EAN13", "EAN8", "UPCA", "UPCE", "ITF", "PDF417", "Aztec"};
inline std::string_view codeFormatName(CodeFormat format) { return kCodeFormatNames[static_cast<std::size_t>(format)]; }

// One word of a page, as the host reads it and every text decision sees it:
// a maximal run of non-blank characters, in the host's reading order. `h`, `v`
// are the bottom-left corner of its first character's quadrilateral in PDF
// user space (points, origin bottom-left, unrotated page), truncated toward
// zero. `number` identifies the word on its page for the highlight step.
struct Word {
    std::string text;
    int h = 0;
    int v = 0;
    int page = 0;  // 0-based
    std::uint16_t number = 0;
    // How sure the reading of a page's image was of it, 0 to 100; -1 for a
    // word of the page's text.
    std::int8_t confidence = -1;
    // For a code read from the page's image: its kind; its text is the
    // code's value and its h, v the bottom-left corner of the code's box.
    CodeFormat code = CodeFormat::None;
};
// Returning false stops the enumeration of the current page.
using WordCallback = std::function<bool(const Word&)>;

// A coordinate in points as a whole number: truncated toward zero, so 99.99
// gives 99 and -0.5 gives 0. Values outside 32 bits saturate; NaN gives 0.
int truncateCoordinate(double points);

// A word read from a page's image: its box and the start of its baseline
// in the image's pixels (origin top-left), and how sure the reading was.
struct RecognizedWord {
    std::string text;
    float x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    float baseX = 0, baseY = 0;
    float endX = 0, endY = 0;  // where the baseline ends
    int confidence = 0;
};

// A word read from a page's image, placed for an invisible text layer in the
// page's PDF user space: its baseline from x, y along dx, dy (as long as the
// word), and its height.
struct PlacedWord {
    std::string text;
    float x = 0, y = 0, dx = 0, dy = 0, size = 0;
};
using TextLayer = std::vector<PlacedWord>;

// A page rendered in grey to be read: a byte a pixel (0 is black), rows top
// to bottom, as the page is shown (its /Rotate applied).
struct GreyRaster {
    int width = 0;
    int height = 0;
    int dpi = 0;
    bool wholePage = true;  // else an area of it, where orientation is not looked for
    std::vector<unsigned char> pixels;
};

// Reads the words of a page's image, in reading order; a page scanned
// turned or skewed is read the right way round, its words still placed in
// the image as given. One recognizer is used from one thread at a time.
class TextRecognizer {
public:
    virtual ~TextRecognizer() = default;
    // Throws std::runtime_error when the image cannot be read.
    virtual std::vector<RecognizedWord> read(const GreyRaster& raster) = 0;
};

// A code found in a page's image: its value, its kind and its box in the
// image's pixels (origin top-left).
struct FoundCode {
    std::string text;
    CodeFormat format = CodeFormat::None;
    float x0 = 0, y0 = 0, x1 = 0, y1 = 0;
};

// Finds the codes in a page's image, in the order they stand (top to bottom,
// then left to right), whichever way round they are printed. One reader is
// used from one thread at a time.
class CodeReader {
public:
    virtual ~CodeReader() = default;
    // Throws std::runtime_error when the image cannot be read.
    virtual std::vector<FoundCode> read(const GreyRaster& raster) = 0;
};

// When a host reads a page's words from its image, and with what: the text
// (OCR), the codes, and whether a page shows almost nothing.
struct TextRecognition {
    enum class Pages { Off, WithoutText, All };
    Pages pages = Pages::Off;
    int dpi = 300;
    // Makes the recognizer a host uses, the first time a page needs one.
    // Throws std::runtime_error with what is missing (such as a language).
    std::function<std::unique_ptr<TextRecognizer>()> make;
    // What the recognizer made by `make` reads with: a host keeps its
    // recognizer while this stays the same.
    std::string key;
    // Pages read from their image keep what was read, for outputs to carry
    // as an invisible text layer.
    bool textLayer = false;
    // Only this area of a page is read (PDF user space: x0, y0, x1, y1),
    // when nothing outside it can matter; else the whole page.
    std::optional<std::array<float, 4>> area;

    // The codes on a page, as words after its text: on the pages `pages`
    // says, rendered at `dpi` unless the page is rendered for its text.
    struct Codes {
        Pages pages = Pages::Off;
        int dpi = 150;
        std::function<std::unique_ptr<CodeReader>()> make;
        std::string key;  // what `make` reads with, as `key` above
    } codes;
    // Whether a page's image shows almost nothing: pages without text are
    // looked at with it, when set.
    std::function<bool(const GreyRaster&)> blank;
};

class DocumentHost {
public:
    virtual ~DocumentHost() = default;

    // The document open in the host's viewer: the one the GUI shows, or the
    // one opened last. None when nothing is open.
    virtual std::optional<ViewHandle> activeViewDocument() = 0;
    // The document model behind a view. Throws HostError.
    virtual DocHandle documentOfView(ViewHandle view) = 0;
    // The path of a document's file, as text (empty for a new document).
    virtual std::string filePath(DocHandle doc) = 0;
    // The host's form of a text path (UTF-8).
    virtual std::filesystem::path makeHostPath(std::string_view text) const;

    // Opens a PDF file and makes it the current document. Throws HostError
    // with the host's text for a missing, damaged, non-PDF or encrypted file.
    DocHandle openDocument(const std::filesystem::path& path) { return openFile(path, true); }
    // Opens a PDF file for reading only; the current document stays as it is.
    DocHandle openDocumentUnseen(const std::filesystem::path& path) { return openFile(path, false); }
    // A new document without pages.
    virtual DocHandle createDocument() = 0;
    // Appends `count` pages of `source`, from 0-based `firstPage` on, to the
    // end of `target`. With `bookmarks`, the source's bookmarks that point into
    // those pages come along, with their hierarchy, pointing at the new pages.
    virtual void insertPages(DocHandle target, DocHandle source, int firstPage, int count, bool bookmarks) = 0;
    // Saves a document in full. Readers never see a half-written file: on
    // failure any earlier file of that name is left as it was.
    virtual void saveDocument(DocHandle doc, const std::filesystem::path& path) = 0;
    // Releases a document; closing the current document leaves none current.
    virtual void closeDocument(DocHandle doc) = 0;
    // The document as if closed and opened again: whatever the host keeps of
    // what was read from it is given back. Answers the handle to use from
    // now on; the current document stays current. Throws HostError.
    virtual DocHandle reopenDocument(DocHandle doc);
    virtual int pageCount(DocHandle doc) = 0;
    // The page's /Rotate in degrees: 0, 90, 180 or 270. Throws HostError.
    virtual int pageRotation(DocHandle doc, int page) = 0;

    // Error model: the host's text for one of its codes, and raising a code as
    // the host would.
    virtual std::string errorText(int code) const;
    [[noreturn]] void raise(int code) const;

    // Calls `onWord` for every word of a 0-based page, in reading order, until
    // it returns false. Throws HostError.
    virtual void enumerateWords(DocHandle doc, int page, const WordCallback& onWord) = 0;
    // Appends every word of a page, as enumerateWords gives them, to `words`.
    // Throws HostError. A host may build them without a call per word.
    virtual void appendWords(DocHandle doc, int page, std::vector<Word>& words);

    // Pages from now on have their words read from their image, as
    // `recognition` says: those without text, or all of them. A page is read
    // from its image once while the host lives; a recognizer that cannot be
    // made fails the page's words with HostError (kRecognition). A host that
    // cannot render ignores it.
    virtual void setTextRecognition(const TextRecognition& recognition) { recognition_ = recognition; }
    const TextRecognition& textRecognition() const { return recognition_; }
    // Whether the words of a page read so far came from its image (OCR).
    virtual bool pageRecognized(DocHandle /*doc*/, int /*page*/) { return false; }
    // Whether a page shows no text, no code and almost no ink: specks, a
    // punched hole or a stray dot, but not a signature or a line of
    // writing. Asked after the page's words, with `blank` set. Throws
    // HostError.
    virtual bool pageBlank(DocHandle /*doc*/, int /*page*/) { return false; }
    // What was read from a page's image, placed for a text layer (with
    // `textLayer` on); none for a page not read from its image.
    virtual std::shared_ptr<const TextLayer> recognizedLayer(DocHandle /*doc*/, int /*page*/) { return nullptr; }
    // Writes words as invisible text under what a 0-based page of a target
    // shows, so that the page can be searched and copied. Throws HostError.
    virtual void addTextLayer(DocHandle /*target*/, int /*page*/, const TextLayer& /*layer*/) {}

    // Bookmark tree: the root of the outline (none when the document has no
    // bookmarks), first child and next sibling (none at the end), the title as
    // UTF-8, the indent (top-level items are 0), and the 0-based page a
    // bookmark points at (-1 when it points nowhere). Throw HostError for a
    // broken outline.
    virtual BookmarkHandle bookmarkRoot(DocHandle doc) = 0;
    virtual BookmarkHandle firstChild(BookmarkHandle bookmark) = 0;
    virtual BookmarkHandle nextSibling(BookmarkHandle bookmark) = 0;
    virtual std::string bookmarkTitle(BookmarkHandle bookmark) = 0;
    virtual int bookmarkIndent(BookmarkHandle bookmark) = 0;
    virtual int bookmarkPage(BookmarkHandle bookmark) = 0;

protected:
    virtual DocHandle openFile(const std::filesystem::path& path, bool makeCurrent) = 0;

    TextRecognition recognition_;
};

// Makes a host of the same kind as a run's own, for a worker thread: hosts
// are used from one thread at a time, so work side by side needs several.
using HostFactory = std::function<std::unique_ptr<DocumentHost>()>;

}  // namespace vellira
