// AnnotationCarrier: what a new document keeps of the annotations, form
// fields and links of the pages grafted into it.
//
// MuPDF grafts a page's contents and resources only. The carrier copies each
// grafted page's annotations as it arrives, each pointing at its new page; a
// widget brings the fields above it, so the new document's form holds the
// fields whose widgets it carries, with their values. Links to pages of the
// same source wait until the document is complete: one to a page it holds is
// pointed at that page (named destinations come along), one to any other page
// is dropped. Nothing in an annotation that leads to a page object of the
// source is copied, so a copy never drags the source's page tree along.
#pragma once

extern "C" {
#include <mupdf/fitz.h>
#include <mupdf/pdf.h>
}

#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vellira {

// What a source has shown to lead to a page object, by object number; kept
// with the source so every output of a run asks once.
using PageReach = std::unordered_map<int, bool>;

class AnnotationCarrier {
public:
    explicit AnnotationCarrier(fz_context* ctx) : ctx_(ctx) {}
    ~AnnotationCarrier();
    AnnotationCarrier(const AnnotationCarrier&) = delete;
    AnnotationCarrier& operator=(const AnnotationCarrier&) = delete;

    // Whether a source page has annotations to carry; false for a page that
    // cannot be read.
    static bool hasAnnotations(fz_context* ctx, pdf_obj* sourcePage);

    // Pages `sourceFirst`.. of source `sourceId` that stand at `targetFirst`..
    // of the target. The target keeps one for every graft, annotations or
    // not: a link may point at any of its pages.
    struct Range {
        int sourceId = 0, sourceFirst = 0, targetFirst = 0, count = 0;
    };

    // Copies the annotations of `sourcePage` (the page object of page number
    // `sourcePageNumber`) onto the target's page `targetPage`. An annotation
    // that cannot be read is left out; throws HostError only when the target
    // cannot be changed.
    void carryPage(pdf_document* target, pdf_graft_map* map, int sourceId, pdf_document* source, pdf_obj* sourcePage,
                   int targetPage, PageReach& reach);

    // Points the links at their pages (or drops them) and writes the form and
    // the named destinations into the target. Call once all pages are in.
    void finish(pdf_document* target, const std::vector<Range>& ranges);

private:
    struct Link {
        pdf_obj* annot = nullptr;  // the copy, kept
        int targetPage = 0;        // the page whose /Annots holds it
        int sourceId = 0;
        int sourcePage = -1;      // where it points in its source
        pdf_obj* name = nullptr;  // a named destination, kept; null for an explicit one
        pdf_obj* view = nullptr;  // the destination after its page (/XYZ left top zoom...), kept
        bool viaAction = false;   // given as a GoTo action, not as /Dest
    };
    bool reachesPage(pdf_obj* object, PageReach& reach);
    pdf_obj* copyDict(pdf_document* target, pdf_graft_map* map, pdf_obj* dict, const std::vector<pdf_obj*>& skipped,
                      PageReach& reach);
    pdf_obj* fieldFor(pdf_document* target, pdf_graft_map* map, int sourceId, pdf_obj* field, PageReach& reach,
                      int depth);
    void adoptForm(pdf_document* target, pdf_graft_map* map, pdf_document* source, PageReach& reach);
    pdf_obj* keep(pdf_obj* object);

    fz_context* ctx_;
    std::vector<Link> links_;
    std::map<std::pair<int, int>, pdf_obj*> copies_;  // (source, object number) -> its copy: annotations and fields
    std::set<std::pair<int, int>> building_;          // fields whose ancestors are being copied
    std::vector<pdf_obj*> rootFields_;
    pdf_obj* form_ = nullptr;  // the form settings taken from the first source with widgets
    std::vector<pdf_obj*> kept_;
};

}  // namespace vellira
