#include "engine/PageReader.h"

#include "core/Text.h"
#include "engine/PageWords.h"

namespace vellira {

namespace {

// Pages a worker reads between two give-backs of what its copy cached.
constexpr int kWorkerReopenEvery = 1024;
// Pages read ahead per worker.
constexpr int kAheadPerWorker = 256;

}  // namespace

PageText readPageText(DocumentHost& host, DocHandle doc, int page, std::size_t expected) {
    PageText text;
    text.page = page;
    text.words.reserve(expected);
    text.rotation = host.pageRotation(doc, page);
    host.appendWords(doc, page, text.words);
    text.recognized = host.pageRecognized(doc, page);
    if (text.recognized) text.layer = host.recognizedLayer(doc, page);
    if (text.words.empty() && host.textRecognition().blank) text.blank = host.pageBlank(doc, page);
    for (Word& word : text.words) {
        // A character is at least a byte: a shorter text is whole.
        if (word.text.size() > kMaxWordChars) word.text.resize(firstCharacters(word.text, kMaxWordChars).size());
    }
    return text;
}

ParallelPageReader::ParallelPageReader(const HostFactory& newHost, std::vector<std::unique_ptr<DocumentHost>>& hosts,
                                       int workers, const std::filesystem::path& source, int first, int last,
                                       DocumentHost& host, const DocHandle& doc)
    : host_(host), doc_(doc), last_(last), slots_(static_cast<std::size_t>(workers) * kAheadPerWorker), next_(first) {
    for (int k = 0; k < workers && first + k < last; ++k) {
        const auto index = static_cast<std::size_t>(k);
        if (hosts.size() <= index) hosts.resize(index + 1);
        try {
            if (!hosts[index]) hosts[index] = newHost();
            hosts[index]->setTextRecognition(host.textRecognition());
        } catch (const HostError&) {
            hosts[index].reset();  // its pages are then read on the scan's host
        }
        threads_.emplace_back(&ParallelPageReader::work, this, hosts[index].get(), source, first + k, workers);
    }
}

ParallelPageReader::~ParallelPageReader() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    for (auto& thread : threads_) thread.join();
}

void ParallelPageReader::work(DocumentHost* host, const std::filesystem::path& source, int page, int step) {
    DocHandle doc;
    if (host) {
        try {
            doc = host->openDocumentUnseen(source);
        } catch (const HostError&) {
            doc = {};
        }
    }
    std::size_t expected = 0;  // words, as many as the page before had
    for (int read = 0; page < last_; page += step) {
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [&] { return stopping_ || page < next_ + static_cast<int>(slots_.size()); });
            if (stopping_) break;
        }
        Slot done;
        done.page = page;
        done.ready = true;
        done.failed = !doc;
        if (doc) {
            try {
                done.text = readPageText(*host, doc, page, expected);
                expected = done.text.words.size();
            } catch (const HostError&) {
                done.failed = true;
            }
            try {
                if (++read % kWorkerReopenEvery == 0) doc = host->reopenDocument(doc);
            } catch (const HostError&) {
                doc = {};  // the rest of its pages are read by the scan
            }
        }
        {
            const std::lock_guard lock(mutex_);
            slotOf(page) = std::move(done);
        }
        changed_.notify_all();
    }
    if (doc) host->closeDocument(doc);
}

PageText ParallelPageReader::read(int page) {
    if (page != next_ || page >= last_) return readPageText(host_, doc_, page);
    Slot taken;
    {
        std::unique_lock lock(mutex_);
        Slot& slot = slotOf(page);
        changed_.wait(lock, [&] { return slot.ready && slot.page == page; });
        taken = std::move(slot);
        slot = Slot{};
        next_ = page + 1;
    }
    changed_.notify_all();
    if (taken.failed) return readPageText(host_, doc_, page);
    return std::move(taken.text);
}

const PageText& RecentPages::add(PageText page) {
    words_ += page.words.size();
    pages_.push_back(std::move(page));
    while (words_ > kMaxWords && pages_.size() > 1) {
        words_ -= pages_.front().words.size();
        pages_.pop_front();
    }
    return pages_.back();
}

void RecentPages::dropBefore(int page) {
    while (!pages_.empty() && pages_.front().page < page) {
        words_ -= pages_.front().words.size();
        pages_.pop_front();
    }
}

void RecentPages::clear() {
    pages_.clear();
    words_ = 0;
}

const std::vector<Word>* RecentPages::words(int page) const {
    if (pages_.empty() || page < pages_.front().page || page > pages_.back().page) return nullptr;
    const PageText& kept = pages_[static_cast<std::size_t>(page - pages_.front().page)];
    return kept.page == page ? &kept.words : nullptr;
}

}  // namespace vellira
