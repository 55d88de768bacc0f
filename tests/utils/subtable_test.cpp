#include "utils/SubTable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

typedef utils::SubTable<std::string, int> Table;

TEST(SubTable, NotifiesSubscribersOfTheKeyInOrder) {
    Table table;
    std::vector<std::string> calls;
    Table::SubRequestPtr a1 =
        table.subscribe("A", [&](const int& v) { calls.push_back("a1:" + std::to_string(v)); });
    Table::SubRequestPtr b =
        table.subscribe("B", [&](const int& v) { calls.push_back("b:" + std::to_string(v)); });
    Table::SubRequestPtr a2 =
        table.subscribe("A", [&](const int& v) { calls.push_back("a2:" + std::to_string(v)); });
    EXPECT_EQ(3u, table.size());
    EXPECT_TRUE(table.hasSubscribers("A"));
    EXPECT_FALSE(table.hasSubscribers("C"));
    EXPECT_EQ("A", a1->key());

    EXPECT_EQ(2u, table.notify("A", 1));
    EXPECT_EQ(1u, table.notify("B", 2));
    EXPECT_EQ(0u, table.notify("C", 3));
    EXPECT_EQ((std::vector<std::string>{"a1:1", "a2:1", "b:2"}), calls);

    // Releasing the last pointer ends a subscription; cancel() ends it at once.
    a1.reset();
    b->cancel();
    calls.clear();
    EXPECT_EQ(1u, table.notify("A", 4));
    EXPECT_EQ(0u, table.notify("B", 5));
    EXPECT_EQ(std::vector<std::string>{"a2:4"}, calls);
    EXPECT_EQ(1u, table.size());
    EXPECT_FALSE(table.hasSubscribers("B"));
    b.reset();  // a cancelled request released later changes nothing
    EXPECT_EQ(1u, table.size());
}

TEST(SubTable, CallbacksMayReleaseSubscribeAndNotify) {
    Table table;
    std::vector<std::string> calls;
    Table::SubRequestPtr self, second, third, added;
    // The first callback releases itself and the third subscriber, subscribes a new one and
    // notifies another key.
    self = table.subscribe("K", [&](const int& v) {
        calls.push_back("self");
        self.reset();
        third.reset();
        added = table.subscribe("K", [&](const int&) { calls.push_back("added"); });
        table.notify("other", v);
    });
    second = table.subscribe("K", [&](const int&) { calls.push_back("second"); });
    third = table.subscribe("K", [&](const int&) { calls.push_back("third"); });
    Table::SubRequestPtr other = table.subscribe("other", [&](const int&) { calls.push_back("other"); });

    // The walk is over the callbacks subscribed when notify began; the released third one is
    // not called, the one added during the walk is not called yet.
    EXPECT_EQ(2u, table.notify("K", 1));
    EXPECT_EQ((std::vector<std::string>{"self", "other", "second"}), calls);
    EXPECT_EQ(3u, table.size());  // second, added, other

    calls.clear();
    EXPECT_EQ(2u, table.notify("K", 2));
    EXPECT_EQ((std::vector<std::string>{"second", "added"}), calls);
}

// reset() ends every subscription, and requests released after it leave new ones alone; a request
// may outlive its table.
TEST(SubTable, ResetEndsEverySubscriptionAndRequestsMayOutliveTheTable) {
    Table::SubRequestPtr kept;
    int oldCalls = 0, newCalls = 0;
    {
        Table table;
        Table::SubRequestPtr a = table.subscribe("A", [&](const int&) { ++oldCalls; });
        Table::SubRequestPtr b = table.subscribe("B", [&](const int&) { ++oldCalls; });
        table.reset();
        EXPECT_EQ(0u, table.size());
        EXPECT_FALSE(table.hasSubscribers("A"));
        EXPECT_EQ(0u, table.notify("A", 1));

        kept = table.subscribe("A", [&](const int&) { ++newCalls; });
        a.reset();
        b->cancel();
        EXPECT_EQ(1u, table.size());
        EXPECT_EQ(1u, table.notify("A", 2));
        EXPECT_EQ(0, oldCalls);
        EXPECT_EQ(1, newCalls);
    }
    kept->cancel();
    kept.reset();
    EXPECT_EQ(1, newCalls);
}

}  // namespace
