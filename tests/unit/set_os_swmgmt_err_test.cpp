// SPDX-License-Identifier: MIT
#include <cstring>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libintl.h>
#include <string>
#include <vector>

#include "hostadm.h"
#include "support/fake_commands.hpp"
#include "support/fake_framework.hpp"

namespace {

using fakes::Recorded;
using testing::ElementsAre;

int refused_allocation = 0; // 1: the first of the library's two buffers, 2: the second
int allocations = 0;

std::vector<Recorded> recorded(const swmgmt_error *error) {
    fakes::reset_all();
    allocations = 0;
    set_swmgmt_errors("add_service", error);
    return fakes::framework().errors;
}

std::vector<Recorded> recorded(int kind, const void *detail = nullptr) {
    const swmgmt_error error = {kind, detail};
    return recorded(&error);
}

// A list of shortages that lives as long as the object.
class Shortages {
public:
    void add(std::string label, std::string name, int required, int no_inodes = 0) {
        texts_.push_back({std::move(label), std::move(name)});
        records_.push_back({nullptr, nullptr, nullptr, 12345, required, no_inodes});
    }
    const swmgmt_space *head() {
        for (std::size_t i = 0; i < records_.size(); ++i) {
            records_[i].label = texts_[i].first.c_str();
            records_[i].name = texts_[i].second.c_str();
            records_[i].next = i + 1 < records_.size() ? &records_[i + 1] : nullptr;
        }
        return records_.data();
    }

private:
    std::vector<std::pair<std::string, std::string>> texts_;
    std::vector<swmgmt_space> records_;
};

bool translated = false; // do the texts have a translation?

const std::string on = "Method add_service: failed insufficient space available on:";

} // namespace

// Refuses one of the report's buffers when a test says so.
extern "C" void *calloc(size_t count, size_t size) {
    static auto *real = reinterpret_cast<void *(*)(size_t, size_t)>(dlsym(RTLD_NEXT, "calloc"));
    if (count * size == 1024 && ++allocations == refused_allocation)
        return nullptr;
    return real(count, size);
}

extern "C" char *gettext(const char *text) noexcept {
    static std::string translation;
    translation = (translated ? "Methode" : "Method") + std::string(text).substr(std::strlen("Method"));
    return translation.data();
}

TEST(SwmgmtErrors, EveryTextIsTranslated) {
    translated = true;
    for (int kind = 0; kind <= 10; ++kind) {
        const std::vector<Recorded> records = recorded(kind);
        ASSERT_EQ(records.size(), 1u);
        EXPECT_THAT(records[0].text, testing::StartsWith("Methode add_service: ")) << kind;
    }
    EXPECT_THAT(recorded(nullptr).at(0).text, testing::StartsWith("Methode add_service: "));
    refused_allocation = 1;
    EXPECT_THAT(recorded(1).at(0).text, testing::StartsWith("Methode add_service: "));
    refused_allocation = 0;
    translated = false;
}

TEST(SwmgmtErrors, MissingDescription) {
    EXPECT_THAT(recorded(nullptr),
                ElementsAre(Recorded{26, "Method add_service: failed due to unknown error return, -2"}));
}

TEST(SwmgmtErrors, KindsWithoutDetail) {
    const std::string method = "Method add_service: ";
    EXPECT_THAT(recorded(3), ElementsAre(Recorded{25, method + "failed due to outstanding dependency"}));
    EXPECT_THAT(recorded(4),
                ElementsAre(Recorded{35, method + "media failure unable to perform modification"}));
    EXPECT_THAT(recorded(5), ElementsAre(Recorded{34, method + "service modification failed"}));
    EXPECT_THAT(recorded(6), ElementsAre(Recorded{37, method + "invalid service for this operation"}));
    EXPECT_THAT(recorded(7), ElementsAre(Recorded{36, method + "invalid operation, service not modified"}));
    EXPECT_THAT(recorded(8), ElementsAre(Recorded{38, method + "invalid softinfo description or file"}));
}

TEST(SwmgmtErrors, UnknownKinds) {
    for (int kind : {0, 10, -1, 2000000000})
        EXPECT_THAT(recorded(kind),
                    ElementsAre(Recorded{26, "Method add_service: failed due to unknown error return, -1"}));
}

TEST(SwmgmtErrors, NoSpaceNamesTheSecondStringFirst) {
    const swmgmt_no_space detail = {"/export", "slice 7 of"};
    EXPECT_THAT(recorded(2, &detail),
                ElementsAre(Recorded{23, "Method add_service: failed no free space on slice 7 of /export"}));
}

TEST(SwmgmtErrors, RevisionFillsItsPlacesInTheOrderOfTheText) {
    const swmgmt_revision detail = {"KTVXcsr", "i386", "11.5", "11.6"};
    EXPECT_THAT(recorded(9, &detail),
                ElementsAre(Recorded{
                    39, "Method add_service: inconsistent revision, installed package KTVXcsr revision "
                        "11.5 does not match revision 11.6 for i386 architecture"}));
}

TEST(SwmgmtErrors, MissingDetailLeavesThePlacesEmpty) {
    EXPECT_THAT(recorded(2), ElementsAre(Recorded{23, "Method add_service: failed no free space on  "}));
    EXPECT_THAT(recorded(9), ElementsAre(testing::Field(&Recorded::code, 39)));
}

TEST(SwmgmtErrors, EmptySpaceListGivesAnEmptyReport) {
    EXPECT_THAT(recorded(1), ElementsAre(Recorded{24, on}));
}

TEST(SwmgmtErrors, SpaceReportTellsSizesAndInodes) {
    Shortages list;
    list.add("File system", "/export", 2048);
    list.add("Slice", "/usr", 99, 1);
    EXPECT_THAT(
        recorded(1, list.head()),
        ElementsAre(Recorded{24, on + "\nFile system /export\n\tThe total required size for /export is 2048KB"
                                      "\nSlice /usr no inodes available"}));
}

TEST(SwmgmtErrors, SpaceReportStopsAfterElevenRecords) {
    Shortages list;
    std::string expected = on;
    for (int i = 1; i <= 15; ++i) {
        list.add("fs", std::to_string(i), 0, 1);
        if (i <= 11)
            expected += "\nfs " + std::to_string(i) + " no inodes available";
    }
    EXPECT_THAT(recorded(1, list.head()), ElementsAre(Recorded{24, expected}));
}

TEST(SwmgmtErrors, LineThatDoesNotFitIsDroppedAndShorterOnesFollow) {
    Shortages list;
    list.add("a", std::string(900, 'x'), 0, 1);
    list.add("b", std::string(200, 'y'), 0, 1);
    list.add("c", "z", 0, 1);
    EXPECT_THAT(recorded(1, list.head()),
                ElementsAre(Recorded{24, on + "\na " + std::string(900, 'x') + " no inodes available" +
                                             "\nc z no inodes available"}));
}

TEST(SwmgmtErrors, ReportHoldsAtMost1023Characters) {
    const std::size_t around = std::string("\na  no inodes available").size();
    Shortages fits;
    fits.add("a", std::string(1023 - around, 'x'), 0, 1);
    EXPECT_EQ(recorded(1, fits.head()).at(0).text.size(), on.size() + 1023);
    Shortages too_long;
    too_long.add("a", std::string(1024 - around, 'x'), 0, 1);
    EXPECT_THAT(recorded(1, too_long.head()), ElementsAre(Recorded{24, on}));
}

TEST(SwmgmtErrors, LineLongerThanItsBufferIsDropped) {
    Shortages list;
    list.add("a", std::string(100000, 'x'), 1);
    list.add("b", "y", 0, 1);
    EXPECT_THAT(recorded(1, list.head()), ElementsAre(Recorded{24, on + "\nb y no inodes available"}));
}

TEST(SwmgmtErrors, NoMemoryForTheReport) {
    for (int refused : {1, 2}) {
        refused_allocation = refused;
        EXPECT_THAT(recorded(1), ElementsAre(Recorded{8, "Method add_service: unable to allocate memory"}));
    }
    refused_allocation = 0;
}
