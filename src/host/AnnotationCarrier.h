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

// What a source tells every output of a run about its annotations, worked
// out once: which of its objects lead to a page object, and where its named
// destinations lead.
struct SourceAnnotations {
    std::unordered_map<int, bool> reachesPage;  // by object number
    struct Named {
        int page = -1;            // -1: no page of the source
        pdf_obj* dest = nullptr;  // the destination with its page as a number, kept
    };
    std::unordered_map<std::string, Named> named;  // by kind ('/' or '(') and name

    void release(fz_context* ctx) {
        for (auto& [name, entry] : named) pdf_drop_obj(ctx, entry.dest);
        named.clear();
    }
};

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
    // of the target: the target keeps one for every graft.
    struct Range {
        int sourceId = 0, sourceFirst = 0, targetFirst = 0, count = 0;
    };

    // Copies the annotations of `sourcePage` onto the target's page
    // `targetPage`, once every page of its range is in the target: a link
    // leads to its page among `ranges`, or is left out. An annotation that
    // cannot be read is left out; throws HostError only when the target
    // cannot be changed.
    void carryPage(pdf_document* target, pdf_graft_map* map, int sourceId, pdf_document* source, pdf_obj* sourcePage,
                   int targetPage, const std::vector<Range>& ranges, SourceAnnotations& known);

    // Writes the form and the named destinations of the carried links into
    // the target. Call once all pages are in.
    void finish(pdf_document* target);

private:
    bool reachesPage(pdf_obj* object, SourceAnnotations& known);
    pdf_obj* copyDict(pdf_document* target, pdf_graft_map* map, pdf_obj* dict, const std::vector<pdf_obj*>& skipped,
                      SourceAnnotations& known);
    pdf_obj* fieldFor(pdf_document* target, pdf_graft_map* map, int sourceId, pdf_obj* field, SourceAnnotations& known,
                      int depth);
    // Makes `child` a kid of the field `parent`, or a root field of the form
    // when it has none.
    void attach(pdf_obj* child, pdf_obj* parent);
    void adoptForm(pdf_document* target, pdf_graft_map* map, pdf_document* source, SourceAnnotations& known);
    SourceAnnotations::Named destinationOf(pdf_document* source, pdf_obj* dest, SourceAnnotations& known);
    pdf_obj* keep(pdf_obj* object);

    fz_context* ctx_;
    std::map<std::pair<int, int>, pdf_obj*> copies_;  // (source, object number) -> its copy: annotations and fields
    std::set<std::pair<int, int>> building_;          // fields whose ancestors are being copied
    std::vector<pdf_obj*> rootFields_;
    pdf_obj* form_ = nullptr;                // the form settings taken from the first source with widgets
    std::map<std::string, pdf_obj*> names_;  // named destinations of carried links, by kind and name
    std::vector<pdf_obj*> kept_;
};

}  // namespace vellira
