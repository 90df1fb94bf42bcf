#include "captions/NarrationStatus.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

using Phase = NarrationStatus::Phase;

struct Row {
    NarrationStatus status;
    std::optional<std::string> placeholder;
    bool spinner;
};

TEST(NarrationStatus, SaysWhatTheNarrationIsAbout) {
    const Row rows[] = {
        {{}, "Waiting for narration…", false},
        {{Phase::connecting}, "Connecting to session…", true},
        {{Phase::warming}, "Warming up voice…", true},
        {{Phase::synthesizing}, "Synthesizing…", true},
        {{Phase::playing}, std::nullopt, false},
        {NarrationStatus::paused(-1), "Paused", false},
        {NarrationStatus::paused(0), "Paused", false},
        {NarrationStatus::paused(1), "Paused · 1 queued", false},
        {NarrationStatus::paused(3), "Paused · 3 queued", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.placeholder.value_or("playing"));
        EXPECT_EQ(row.placeholder, NarrationStatusFormat::placeholder(row.status));
        EXPECT_EQ(row.spinner, NarrationStatusFormat::showsSpinner(row.status));
    }
}

}  // namespace
}  // namespace sonra
