#include "engine/PageWords.h"
#include "support/RecordingInterface.h"
#include "support/ScriptedHost.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace vellira {
namespace {

using testing::RecordingInterface;
using testing::ScriptedHost;
using testing::ScriptedPage;

DocHandle openPages(ScriptedHost& host, std::vector<ScriptedPage> pages) {
    host.files["doc.pdf"] = std::move(pages);
    return host.openDocument("doc.pdf");
}

ScriptedPage manyWords(int count) {
    ScriptedPage page(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) page[i] = {"w" + std::to_string(i), i % 500, 700};
    return page;
}

// A hostile page may place a word beyond any whole number of points.
TEST(PageWords, CoordinatesBeyondWholeNumbersSaturate) {
    EXPECT_EQ(truncateCoordinate(1e12), std::numeric_limits<int>::max());
    EXPECT_EQ(truncateCoordinate(-1e12), std::numeric_limits<int>::min());
    EXPECT_EQ(truncateCoordinate(std::nan("")), 0);
}

TEST(PageWords, StreamedWordsAreCutBeforeTheConsumerSeesThem) {
    const std::string long300(300, 'x');
    std::string accented;
    for (int i = 0; i < 300; ++i) accented += "\xC3\xA9";  // é
    // The word, the characters a name takes, what the consumer sees: never half a character.
    const std::tuple<std::string, int, std::string> cases[] = {
        {"INVOICE", 5, "INVOI"},
        {"INVOICE", 999, "INVOICE"},
        {"INVOICE", 0, "INVOICE"},
        {"INVOICE", -3, "INVOICE"},
        {"\xC3\xA9t\xC3\xA9", 2, "\xC3\xA9t"},
        {long300, 999, std::string(255, 'x')},
        {accented, 999, accented.substr(0, 510)},
        {long300, 260, std::string(255, 'x')},
    };
    for (const auto& [text, takenChars, expected] : cases) {
        ScriptedHost host;
        std::string seen;
        streamPageWords(host, openPages(host, {{{text, 10, 20}}}), 0, streamedWordLimit(takenChars),
                        [&](const Word& word) { return seen += word.text + "|", true; });
        EXPECT_EQ(seen, expected + "|") << takenChars;
    }
}

TEST(PageWordStore, HoldsUpTo32769WordsThenRefuses) {
    // Words on the page, words stored, whether the consumer refuses them, and what is said.
    const std::tuple<int, int, bool, std::vector<std::string>> cases[] = {
        {0, 0, false, {}},
        {32768, 32768, false, {}},
        {32769, 32769, true, {"Too many words on the page!"}},
        {40000,
         32769,
         true,
         {"Too many words on the page for internal memory to handle! 32768", "Too many words on the page!"}},
    };
    PageWordStore store;  // one store, reused page after page
    for (const auto& [words, stored, refuses, notes] : cases) {
        ScriptedHost host;
        RecordingInterface ui;
        store.readPage(host, openPages(host, {manyWords(words)}), 0, false, ui);
        EXPECT_EQ(store.count(), stored) << words;
        if (stored > 0) {
            EXPECT_EQ(store.words.back().text, "w" + std::to_string(stored - 1));
        }
        EXPECT_EQ(store.tooManyWords(ui), refuses) << words;
        EXPECT_EQ(ui.notes, notes) << words;
    }
}

TEST(PageWordStore, RotatedLayoutSwapsEveryPairAndStopsAndErrorsEndThePage) {
    ScriptedHost host;
    RecordingInterface ui;
    const auto doc = openPages(host, {{{"a", 10, 700}, {"b", -3, 55}}, manyWords(5)});
    PageWordStore store;
    store.readPage(host, doc, 0, true, ui);
    ASSERT_EQ(store.count(), 2);
    EXPECT_EQ(std::pair(store.words[0].h, store.words[0].v), std::pair(700, 10));
    EXPECT_EQ(std::pair(store.words[1].h, store.words[1].v), std::pair(55, -3));

    ui.requestCancel();
    store.readPage(host, doc, 1, false, ui);
    EXPECT_EQ(store.count(), 0);
    ui.clearCancel();
    host.failOnPage = 1;
    EXPECT_THROW(store.readPage(host, doc, 1, false, ui), HostError);
    EXPECT_EQ(ui.notes, (std::vector<std::string>{"Abort!! Error message: cannot read page 2"}));
}

}  // namespace
}  // namespace vellira
