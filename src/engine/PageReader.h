// Reading a source's pages for the scan: one page at a time on the scan's own
// host, or read ahead by workers, each with a host and an open copy of the
// source of its own, and handed over strictly in page order.
//
// The scan keeps the pages it has read (RecentPages) so that a range's words
// can be searched again, for a "[POSh,v]" name or a mail address, without
// reading its pages a second time.
#pragma once

#include "core/DocumentHost.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace vellira {

// Every word of one 0-based page, texts cut to 255 characters, and the
// page's /Rotate.
struct PageText {
    int page = -1;
    int rotation = 0;
    bool recognized = false;  // the words were read from the page's image
    bool blank = false;       // it shows almost nothing (looked at where the host is asked to)
    std::vector<Word> words;
    std::shared_ptr<const TextLayer> layer;  // what was read, for outputs to carry as text
};

// Reads one page through a host, with room for `expected` words. Throws
// HostError.
PageText readPageText(DocumentHost& host, DocHandle doc, int page, std::size_t expected = 0);

class PageReader {
public:
    virtual ~PageReader() = default;
    // The words of a page; pages are asked in increasing order. Throws
    // HostError as the scan's host would for that page.
    virtual PageText read(int page) = 0;
};

// Pages read one by one on the scan's host.
class HostPageReader final : public PageReader {
public:
    // `doc` is followed as it changes: a reopened source has a new handle.
    HostPageReader(DocumentHost& host, const DocHandle& doc) : host_(host), doc_(doc) {}
    PageText read(int page) override {
        PageText text = readPageText(host_, doc_, page, expected_);
        expected_ = text.words.size();
        return text;
    }

private:
    DocumentHost& host_;
    const DocHandle& doc_;
    std::size_t expected_ = 0;  // words, as many as the page before had
};

// Pages first..last-1 read ahead by `workers` threads, page first + k by
// worker k, then every `workers`-th page after it, into a bounded window.
// Worker k works on hosts[k], made by newHost when there is none yet.
// A page a worker could not read (its copy would not open, or the page
// failed) is read again on the scan's host, so that errors come as a
// serial scan gives them.
class ParallelPageReader final : public PageReader {
public:
    ParallelPageReader(const HostFactory& newHost, std::vector<std::unique_ptr<DocumentHost>>& hosts, int workers,
                       const std::filesystem::path& source, int first, int last, DocumentHost& host,
                       const DocHandle& doc);
    ~ParallelPageReader() override;
    ParallelPageReader(const ParallelPageReader&) = delete;
    ParallelPageReader& operator=(const ParallelPageReader&) = delete;

    PageText read(int page) override;

private:
    struct Slot {
        int page = -1;
        bool ready = false;
        bool failed = false;
        PageText text;
    };

    void work(DocumentHost* host, const std::filesystem::path& source, int page, int step);
    Slot& slotOf(int page) { return slots_[static_cast<std::size_t>(page) % slots_.size()]; }

    DocumentHost& host_;
    const DocHandle& doc_;
    int last_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Slot> slots_;
    int next_;  // the page the scan asks for next
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

// The pages the scan read last, kept for a range's second look at its words.
// Holds whole pages, at most kMaxWords words in all (always the last page).
class RecentPages {
public:
    static constexpr std::size_t kMaxWords = 1 << 18;

    // Keeps a page read by the scan; pages come in increasing order.
    const PageText& add(PageText page);
    // Forgets the pages before `page`.
    void dropBefore(int page);
    void clear();
    // The page's words when it is kept, else none.
    const std::vector<Word>* words(int page) const;

private:
    std::deque<PageText> pages_;
    std::size_t words_ = 0;
};

}  // namespace vellira
