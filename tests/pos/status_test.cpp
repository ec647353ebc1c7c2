// Status vocabulary: spellings, conversions both ways and their failures.

#include "pos/pos.h"

#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>

using namespace pos;

namespace {

template <typename Call> void expectMapAt(Call call, const std::string& row) {
    try {
        call();
        ADD_FAILURE() << row << ": no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "map::at") << row;
    }
}

} // namespace

TEST(Status, EveryStatusHasOneSpellingAndReadsBack) {
    const struct {
        status_t status;
        const char* text;
        char compact;
    } rows[] = {
        {UNPROVED, "Unproved", '-'},
        {UNKNOWN, "Unknown", '-'},
        {UNRELIABLY_PROVED, "UnreliablyProved", '*'},
        {PROVED, "Proved", '+'},
        {DISPROVED, "Disproved", '!'},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(strOfProofStatus(row.status).toStdString(), row.text);
        EXPECT_EQ(proofStatusOfAttrValue(strOfProofStatus(row.status)), row.status) << row.text;
        EXPECT_EQ(charOfStatus.at(row.status), row.compact) << row.text;
        std::ostringstream streamed;
        streamed << row.status;
        EXPECT_EQ(streamed.str(), row.text);
    }
    EXPECT_EQ(charOfStatus.size(), 5u);
}

TEST(Status, EnvironmentProofStatesReadAsProved) {
    for (const char* text :
         {"Proved(0)", "Proved(1)", "Proved(2)", "Proved(3)", "Proved(Util)", "Proved(Rapide)"})
        EXPECT_EQ(proofStatusOfAttrValue(QString::fromUtf8(text)), PROVED) << text;
}

TEST(Status, UnknownTextsAndValuesThrowMapAt) {
    for (const char* text :
         {"Valid", "Invalid", "proved", " Proved", "Proved ", "", "Proved(4)", "UNPROVED"})
        expectMapAt([text] { proofStatusOfAttrValue(QString::fromUtf8(text)); },
                    std::string("text '") + text + "'");
    for (int value : {-1, 5})
        expectMapAt([value] { strOfProofStatus(static_cast<status_t>(value)); },
                    "value " + std::to_string(value));
}
