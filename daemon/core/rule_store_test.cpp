#include "daemon/core/rule_store.h"
#include "tests/support/daemon_harness.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

namespace halvo::daemon {
namespace {

namespace json = boost::json;
using Saved = RulesSaver::Outcome;
using Commit = RuleStore::CommitOutcome;

// The client is told what happened to the file: a commit that failed before
// the new file was in place changes nothing and keeps the transaction; once
// the file is in place the commit stands, unsynced or not.
TEST(RuleStoreTest, CommitFollowsWhatTheSaveDid) {
    const std::pair<Saved, bool> cases[] = {
        {Saved::saved, true}, {Saved::savedUnsynced, true}, {Saved::notSaved, false}};
    const json::array before = json::parse(R"([{"action":"block"}])").as_array();
    const json::array after = json::parse(R"([{"action":"share"}])").as_array();
    for (const auto& [saved, adopted] : cases) {
        testkit::ScriptedSaver saver;
        saver.next = {saved, saved == Saved::saved ? "" : "disk: Input/output error"};
        RuleStore store(before, &saver);
        store.begin(1);
        ASSERT_TRUE(store.replace(1, *copyWithin(after, 1024 * 1024)));
        const RuleStore::CommitResult result = store.commit(1);
        EXPECT_EQ(result.outcome, adopted ? Commit::committed : Commit::notSaved);
        EXPECT_EQ(result.problem, saver.next.problem);
        EXPECT_EQ(store.committed(), adopted ? after : before);
        EXPECT_EQ(store.holds(1), !adopted);
        EXPECT_EQ(store.version(), adopted ? 1u : 0u);
    }
}

} // namespace
} // namespace halvo::daemon
