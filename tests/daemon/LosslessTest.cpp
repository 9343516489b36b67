// Reloads and restarts while mail comes: nothing is lost, put off or left unscored.

#include <gtest/gtest.h>

#include "daemon/Daemon.h"
#include "daemon/Traffic.h"
#include "daemon/Upheaval.h"
#include "support/TempDir.h"

namespace Corvane::Milter {
namespace {

// How often a text stands in another one.
std::size_t countOf(const std::string &text, const std::string &sought) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(sought, at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

TEST(Lossless, EachMessageHasTheVerdictOfOneSetWhateverIsReloadedAndRestarted) {
    constexpr unsigned int kClients = 8;
    const TempDir directory;
    Upheaval upheaval(directory);
    Daemon daemon(directory, "");
    upheaval.steer(daemon);
    Traffic traffic(daemon.socket(), kClients);
    for (unsigned int kind = 0; kind < Upheaval::kKinds; ++kind) {
        ASSERT_NO_THROW(upheaval.reload(kind)) << kind;
    }
    ASSERT_NO_THROW(upheaval.restart());
    ASSERT_NO_THROW(upheaval.reload(0));
    const Traffic::Tally tally = traffic.stop();
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_GT(tally.accepted, kClients);
    EXPECT_EQ(tally.putOff + tally.broken + tally.unreachable + tally.unscored, 0U)
        << tally.putOff << " put off, " << tally.broken << " broken, " << tally.unreachable
        << " unreachable, " << tally.unscored << " unscored";
    for (const auto &[verdict, count] : tally.verdicts) {
        const auto known = upheaval.generations().find(verdict.first);
        ASSERT_NE(known, upheaval.generations().end()) << verdict.first;
        EXPECT_EQ(verdict.second, known->second);
    }
    EXPECT_EQ(tally.messageIds.size(), tally.accepted);
    EXPECT_EQ(countOf(daemon.log(), "event=message "), tally.accepted) << "a line for each";
    EXPECT_EQ(countOf(daemon.log(), "verdict=hit"), tally.accepted);
}

} // namespace
} // namespace Corvane::Milter
