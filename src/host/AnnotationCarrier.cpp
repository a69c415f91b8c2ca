#include "host/AnnotationCarrier.h"

#include "host/MupdfGuard.h"

#include <algorithm>
#include <set>
#include <unordered_set>

namespace vellira {

namespace {

constexpr int kMaxFieldDepth = 32;

bool isOneOf(fz_context* ctx, pdf_obj* key, const std::vector<pdf_obj*>& names) {
    return std::any_of(names.begin(), names.end(), [&](pdf_obj* name) { return pdf_name_eq(ctx, key, name); });
}

}  // namespace

AnnotationCarrier::~AnnotationCarrier() {
    for (pdf_obj* object : kept_) pdf_drop_obj(ctx_, object);
}

pdf_obj* AnnotationCarrier::keep(pdf_obj* object) {
    kept_.push_back(pdf_keep_obj(ctx_, object));
    return object;
}

bool AnnotationCarrier::hasAnnotations(fz_context* ctx, pdf_obj* sourcePage) {
    return pdf_array_len(ctx, pdf_dict_get(ctx, sourcePage, PDF_NAME(Annots))) > 0;
}

// One walk over everything `object` refers to, without reading streams. A walk
// that finds no page clears every object it saw: what they reach, it reached.
bool AnnotationCarrier::reachesPage(pdf_obj* object, SourceAnnotations& known) {
    std::vector<pdf_obj*> pending{object};
    std::unordered_set<int> seen;
    bool found = false;
    while (!pending.empty() && !found) {
        pdf_obj* item = pending.back();
        pending.pop_back();
        if (pdf_is_indirect(ctx_, item)) {
            const int num = pdf_to_num(ctx_, item);
            if (const auto asked = known.reachesPage.find(num); asked != known.reachesPage.end()) {
                found = asked->second;
                continue;
            }
            if (!seen.insert(num).second) continue;
            item = pdf_resolve_indirect(ctx_, item);  // null for an object that cannot be read
        }
        if (pdf_is_dict(ctx_, item)) {
            pdf_obj* type = pdf_dict_get(ctx_, item, PDF_NAME(Type));
            if (pdf_name_eq(ctx_, type, PDF_NAME(Page)) || pdf_name_eq(ctx_, type, PDF_NAME(Pages)) ||
                pdf_name_eq(ctx_, type, PDF_NAME(Catalog))) {
                found = true;
                break;
            }
            for (int i = 0, n = pdf_dict_len(ctx_, item); i < n; ++i)
                pending.push_back(pdf_dict_get_val(ctx_, item, i));
        } else if (pdf_is_array(ctx_, item)) {
            for (int i = 0, n = pdf_array_len(ctx_, item); i < n; ++i) pending.push_back(pdf_array_get(ctx_, item, i));
        }
    }
    if (!found) {
        for (const int num : seen) known.reachesPage[num] = false;
    } else if (pdf_is_indirect(ctx_, object)) {
        known.reachesPage[pdf_to_num(ctx_, object)] = true;
    }
    return found;
}

// A new indirect object in the target with every entry of `dict` but the
// skipped keys and those that lead to a page. The caller owns the reference.
pdf_obj* AnnotationCarrier::copyDict(pdf_document* target, pdf_graft_map* map, pdf_obj* dict,
                                     const std::vector<pdf_obj*>& skipped, SourceAnnotations& known) {
    std::vector<int> entries;
    for (int i = 0, n = pdf_dict_len(ctx_, dict); i < n; ++i) {
        if (isOneOf(ctx_, pdf_dict_get_key(ctx_, dict, i), skipped)) continue;
        if (reachesPage(pdf_dict_get_val(ctx_, dict, i), known)) continue;
        entries.push_back(i);
    }
    const int* entry = entries.data();
    const std::size_t count = entries.size();
    pdf_obj* ref = nullptr;
    mupdfGuarded(ctx_, [&] {
        pdf_obj* copy = pdf_new_dict(ctx_, target, static_cast<int>(count) + 2);
        fz_try(ctx_) {
            for (std::size_t i = 0; i < count; ++i)
                pdf_dict_put_drop(ctx_, copy, pdf_dict_get_key(ctx_, dict, entry[i]),
                                  pdf_graft_mapped_object(ctx_, map, pdf_dict_get_val(ctx_, dict, entry[i])));
            ref = pdf_add_object(ctx_, target, copy);
        }
        fz_always(ctx_) pdf_drop_obj(ctx_, copy);
        fz_catch(ctx_) fz_rethrow(ctx_);
    });
    return ref;
}

// The target's copy of a source field and of the fields above it, made once
// per target; null when it cannot be made.
pdf_obj* AnnotationCarrier::fieldFor(pdf_document* target, pdf_graft_map* map, int sourceId, pdf_obj* field,
                                     SourceAnnotations& known, int depth) {
    if (!pdf_is_indirect(ctx_, field) || !pdf_is_dict(ctx_, field) || depth > kMaxFieldDepth) return nullptr;
    const std::pair<int, int> key{sourceId, pdf_to_num(ctx_, field)};
    if (building_.count(key)) return nullptr;  // a field that is its own ancestor stops at the repeat
    if (const auto made = copies_.find(key); made != copies_.end()) return made->second;
    pdf_obj* copy = nullptr;
    try {
        copy = copyDict(target, map, field, {PDF_NAME(Kids), PDF_NAME(Parent), PDF_NAME(P)}, known);
    } catch (const HostError&) {
        return nullptr;
    }
    copies_[key] = keep(copy);
    pdf_drop_obj(ctx_, copy);
    building_.insert(key);
    pdf_obj* parent = fieldFor(target, map, sourceId, pdf_dict_get(ctx_, field, PDF_NAME(Parent)), known, depth + 1);
    building_.erase(key);
    attach(copy, parent);
    return copy;
}

void AnnotationCarrier::attach(pdf_obj* child, pdf_obj* parent) {
    if (!parent) {
        rootFields_.push_back(child);
        return;
    }
    mupdfGuarded(ctx_, [&] {
        pdf_dict_put(ctx_, child, PDF_NAME(Parent), parent);
        pdf_obj* kids = pdf_dict_get(ctx_, parent, PDF_NAME(Kids));
        if (!pdf_is_array(ctx_, kids)) kids = pdf_dict_put_array(ctx_, parent, PDF_NAME(Kids), 1);
        pdf_array_push(ctx_, kids, child);
    });
}

// The source form's settings that make the carried fields show and edit as
// they did: default resources, default appearance, quadding, flags.
void AnnotationCarrier::adoptForm(pdf_document* target, pdf_graft_map* map, pdf_document* source,
                                  SourceAnnotations& known) {
    if (form_) return;
    pdf_obj* form = pdf_dict_getp(ctx_, pdf_trailer(ctx_, source), "Root/AcroForm");
    std::vector<pdf_obj*> others;  // the fields, scripts and the rest stay behind
    for (int i = 0, n = pdf_dict_len(ctx_, form); i < n; ++i) {
        pdf_obj* key = pdf_dict_get_key(ctx_, form, i);
        const std::string name = pdf_to_name(ctx_, key);
        if (name != "DR" && name != "DA" && name != "Q" && name != "NeedAppearances" && name != "SigFlags")
            others.push_back(key);
    }
    form_ = keep(copyDict(target, map, form, others, known));
    pdf_drop_obj(ctx_, form_);
}

// Where a link's destination leads in its source: the page, and the
// destination itself. Named ones are looked up once per source.
SourceAnnotations::Named AnnotationCarrier::destinationOf(pdf_document* source, pdf_obj* dest,
                                                          SourceAnnotations& known) {
    const auto pageOf = [&](pdf_obj* array) {
        pdf_obj* first = pdf_array_get(ctx_, array, 0);
        if (pdf_is_int(ctx_, first)) return pdf_to_int(ctx_, first);
        return pdf_is_dict(ctx_, first) ? pdf_lookup_page_number(ctx_, source, first) : -1;
    };
    const bool isName = pdf_is_name(ctx_, dest);
    if (!isName && !pdf_is_string(ctx_, dest)) {
        SourceAnnotations::Named explicitly{-1, dest};
        try {
            mupdfGuarded(ctx_, [&] { explicitly.page = pageOf(dest); });
        } catch (const HostError&) {
            explicitly.page = -1;
        }
        return explicitly;
    }
    const std::string key = isName ? "/" + std::string(pdf_to_name(ctx_, dest))
                                   : "(" + std::string(pdf_to_str_buf(ctx_, dest), pdf_to_str_len(ctx_, dest));
    if (const auto asked = known.named.find(key); asked != known.named.end()) return asked->second;
    SourceAnnotations::Named named;
    try {
        mupdfGuarded(ctx_, [&] {
            pdf_obj* array = pdf_lookup_dest(ctx_, source, dest);
            if (pdf_is_dict(ctx_, array)) array = pdf_dict_get(ctx_, array, PDF_NAME(D));
            named.page = pageOf(array);
            if (named.page < 0) return;
            // Read again after the source gives memory back: kept as a copy.
            named.dest = pdf_copy_array(ctx_, array);
            pdf_array_put_drop(ctx_, named.dest, 0, pdf_new_int(ctx_, named.page));
        });
    } catch (const HostError&) {
        named.page = -1;
    }
    known.named.emplace(key, named);
    return named;
}

void AnnotationCarrier::carryPage(pdf_document* target, pdf_graft_map* map, int sourceId, pdf_document* source,
                                  pdf_obj* sourcePage, int targetPage, const std::vector<Range>& ranges,
                                  SourceAnnotations& known) {
    // The target's page of a source page, -1 when the target does not hold
    // it; a target's page tree is one flat list.
    const auto pageInTarget = [&](int sourcePageNumber) -> pdf_obj* {
        for (const Range& range : ranges) {
            const int index = sourcePageNumber - range.sourceFirst;
            if (range.sourceId != sourceId || index < 0 || index >= range.count) continue;
            pdf_obj* kids = pdf_dict_getp(ctx_, pdf_trailer(ctx_, target), "Root/Pages/Kids");
            pdf_obj* page = pdf_array_get(ctx_, kids, range.targetFirst + index);
            if (pdf_array_len(ctx_, kids) == pdf_count_pages(ctx_, target) &&
                pdf_name_eq(ctx_, pdf_dict_get(ctx_, page, PDF_NAME(Type)), PDF_NAME(Page)))
                return page;
            return pdf_lookup_page_obj(ctx_, target, range.targetFirst + index);
        }
        return nullptr;
    };

    pdf_obj* annots = pdf_dict_get(ctx_, sourcePage, PDF_NAME(Annots));
    pdf_obj* page = nullptr;
    pdf_obj* carried = nullptr;
    mupdfGuarded(ctx_, [&] {
        page = pdf_lookup_page_obj(ctx_, target, targetPage);
        carried = pdf_dict_put_array(ctx_, page, PDF_NAME(Annots), pdf_array_len(ctx_, annots));
    });
    const std::vector<pdf_obj*> always{PDF_NAME(P), PDF_NAME(Parent), PDF_NAME(Popup), PDF_NAME(IRT),
                                       PDF_NAME(StructParent)};
    std::vector<pdf_obj*> withLink = always;
    withLink.insert(withLink.end(), {PDF_NAME(Dest), PDF_NAME(A)});
    std::vector<std::pair<pdf_obj*, pdf_obj*>> onPage;  // (source annotation, its copy)

    for (int i = 0, n = pdf_array_len(ctx_, annots); i < n; ++i) {
        pdf_obj* ref = pdf_array_get(ctx_, annots, i);
        pdf_obj* annot = pdf_resolve_indirect(ctx_, ref);
        if (!pdf_is_dict(ctx_, annot)) continue;
        pdf_obj* subtype = pdf_dict_get(ctx_, annot, PDF_NAME(Subtype));

        // A link within the source comes along only when the target holds
        // the page it leads to.
        pdf_obj* dest = nullptr;
        bool viaAction = false;
        pdf_obj* leadsTo = nullptr;
        SourceAnnotations::Named where;
        if (pdf_name_eq(ctx_, subtype, PDF_NAME(Link))) {
            dest = pdf_dict_get(ctx_, annot, PDF_NAME(Dest));
            pdf_obj* action = pdf_dict_get(ctx_, annot, PDF_NAME(A));
            if (!dest && pdf_name_eq(ctx_, pdf_dict_get(ctx_, action, PDF_NAME(S)), PDF_NAME(GoTo))) {
                dest = pdf_dict_get(ctx_, action, PDF_NAME(D));
                viaAction = true;
            }
        }
        if (dest) {
            where = destinationOf(source, dest, known);
            if (where.page < 0) continue;
            try {
                mupdfGuarded(ctx_, [&] { leadsTo = pageInTarget(where.page); });
            } catch (const HostError&) {
                leadsTo = nullptr;
            }
            if (!leadsTo) continue;
        }

        pdf_obj* copy = nullptr;
        pdf_obj* targetDest = nullptr;
        try {
            copy = copyDict(target, map, annot, dest ? withLink : always, known);
            mupdfGuarded(ctx_, [&] {
                pdf_dict_put(ctx_, copy, PDF_NAME(P), page);
                pdf_array_push(ctx_, carried, copy);
                if (!dest) return;
                // The page, then the view as the source gives it.
                const int length = pdf_array_len(ctx_, where.dest);
                targetDest = pdf_new_array(ctx_, target, length);
                pdf_array_push(ctx_, targetDest, leadsTo);
                for (int k = 1; k < length; ++k) {
                    pdf_obj* part = pdf_array_get(ctx_, where.dest, k);
                    pdf_array_push_drop(
                        ctx_, targetDest,
                        pdf_is_indirect(ctx_, part) ? PDF_NULL : pdf_graft_mapped_object(ctx_, map, part));
                }
                pdf_obj* named = pdf_is_array(ctx_, dest) ? nullptr : pdf_graft_mapped_object(ctx_, map, dest);
                pdf_obj* value = named ? named : targetDest;
                if (viaAction) {
                    pdf_obj* action = pdf_dict_put_dict(ctx_, copy, PDF_NAME(A), 2);
                    pdf_dict_put(ctx_, action, PDF_NAME(S), PDF_NAME(GoTo));
                    pdf_dict_put(ctx_, action, PDF_NAME(D), value);
                } else {
                    pdf_dict_put(ctx_, copy, PDF_NAME(Dest), value);
                }
                pdf_drop_obj(ctx_, named);
            });
        } catch (const HostError&) {
            pdf_drop_obj(ctx_, targetDest);
            pdf_drop_obj(ctx_, copy);
            continue;
        }
        keep(copy);
        pdf_drop_obj(ctx_, copy);
        if (targetDest) {
            if (!pdf_is_array(ctx_, dest)) {
                const std::string key = pdf_is_name(ctx_, dest)
                                            ? "/" + std::string(pdf_to_name(ctx_, dest))
                                            : "(" + std::string(pdf_to_str_buf(ctx_, dest), pdf_to_str_len(ctx_, dest));
                if (names_.emplace(key, targetDest).second) keep(targetDest);
            }
            pdf_drop_obj(ctx_, targetDest);
        }
        if (pdf_is_indirect(ctx_, ref)) copies_[{sourceId, pdf_to_num(ctx_, ref)}] = copy;
        onPage.emplace_back(annot, copy);

        if (pdf_name_eq(ctx_, subtype, PDF_NAME(Widget))) {
            attach(copy, fieldFor(target, map, sourceId, pdf_dict_get(ctx_, annot, PDF_NAME(Parent)), known, 0));
            try {
                adoptForm(target, map, source, known);
            } catch (const HostError&) {
                // The fields still come along, with the target's defaults.
            }
        }
    }

    // Pop-ups and replies point at the copies of what they belong to, when
    // those came along.
    for (const auto& entry : onPage) {
        pdf_obj* annot = entry.first;
        pdf_obj* copy = entry.second;
        for (pdf_obj* key : {PDF_NAME(Popup), PDF_NAME(IRT), PDF_NAME(Parent)}) {
            if (pdf_name_eq(ctx_, key, PDF_NAME(Parent)) &&
                !pdf_name_eq(ctx_, pdf_dict_get(ctx_, annot, PDF_NAME(Subtype)), PDF_NAME(Popup)))
                continue;
            pdf_obj* other = pdf_dict_get(ctx_, annot, key);
            if (!pdf_is_indirect(ctx_, other)) continue;
            const auto found = copies_.find({sourceId, pdf_to_num(ctx_, other)});
            if (found == copies_.end()) continue;
            mupdfGuarded(ctx_, [&] { pdf_dict_put(ctx_, copy, key, found->second); });
        }
    }
    if (onPage.empty()) mupdfGuarded(ctx_, [&] { pdf_dict_del(ctx_, page, PDF_NAME(Annots)); });
}

void AnnotationCarrier::finish(pdf_document* target) {
    if (!rootFields_.empty() && !form_) {
        pdf_obj* made = nullptr;
        mupdfGuarded(ctx_, [&] { made = pdf_add_new_dict(ctx_, target, 1); });
        form_ = keep(made);
        pdf_drop_obj(ctx_, made);
    }
    mupdfGuarded(ctx_, [&] {
        pdf_obj* catalog = pdf_dict_get(ctx_, pdf_trailer(ctx_, target), PDF_NAME(Root));
        // Names given as strings go in the name tree, by their bytes, as it
        // must be sorted; those given as names in the catalog's /Dests.
        pdf_obj* tree = nullptr;
        pdf_obj* dests = nullptr;
        for (const auto& [key, dest] : names_) {
            if (key[0] == '(') {
                if (!tree) {
                    pdf_obj* names = pdf_dict_get(ctx_, catalog, PDF_NAME(Names));
                    if (!pdf_is_dict(ctx_, names)) names = pdf_dict_put_dict(ctx_, catalog, PDF_NAME(Names), 1);
                    tree = pdf_dict_put_array(ctx_, pdf_dict_put_dict(ctx_, names, PDF_NAME(Dests), 1), PDF_NAME(Names),
                                              static_cast<int>(2 * names_.size()));
                }
                pdf_array_push_drop(ctx_, tree, pdf_new_string(ctx_, key.data() + 1, key.size() - 1));
                pdf_array_push(ctx_, tree, dest);
            } else {
                if (!dests) dests = pdf_dict_put_dict(ctx_, catalog, PDF_NAME(Dests), static_cast<int>(names_.size()));
                pdf_dict_puts(ctx_, dests, key.c_str() + 1, dest);
            }
        }
        if (!rootFields_.empty()) {
            pdf_obj* fields = pdf_dict_put_array(ctx_, form_, PDF_NAME(Fields), static_cast<int>(rootFields_.size()));
            for (pdf_obj* field : rootFields_) pdf_array_push(ctx_, fields, field);
            pdf_dict_put(ctx_, catalog, PDF_NAME(AcroForm), form_);
        }
    });
    names_.clear();
    rootFields_.clear();
}

}  // namespace vellira
