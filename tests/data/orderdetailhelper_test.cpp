// Completion rules of orders: which orders are finished, per account type, and what follows.
#include <gtest/gtest.h>

#include <vector>

#include "base/data/COrderDetailHelper.h"
#include "testing/RecordBuilders.h"

namespace ttservice {
namespace {

using test::makeAccountInfo;
using test::OrderBuilder;

// '5', '6', '8', '9' end an order in every market variant; a text status by its first character.
TEST(COrderDetailHelperTest, StatusTestsOfEveryMarketVariant) {
    const std::string ending = "5689";
    for (const int status : std::vector<int>{'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 0, 'a'}) {
        const bool ends = ending.find(static_cast<char>(status)) != std::string::npos;
        const EEntrustStatus s = static_cast<EEntrustStatus>(status);
        EXPECT_EQ(ends, COrderDetailHelper::isStkComplete(s)) << status;
        EXPECT_EQ(ends, COrderDetailHelper::isHGTComplete(s)) << status;
        EXPECT_EQ(ends, COrderDetailHelper::isSgtComplete(s)) << status;
    }
    const std::pair<std::string, bool> texts[] = {{"", false}, {"5", true},  {"5x", true}, {"x5", false},
                                                  {"9", true}, {"7", false}, {"68", true}};
    for (const auto& c : texts) {
        EXPECT_EQ(c.second, COrderDetailHelper::isStkComplete(c.first)) << c.first;
        EXPECT_EQ(c.second, COrderDetailHelper::isHGTComplete(c.first)) << c.first;
        EXPECT_EQ(c.second, COrderDetailHelper::isSgtComplete(c.first)) << c.first;
    }
}

// Types 2, 3, 7, 10, 11: status alone; others also submit status and full trade; an info: end time.
TEST(COrderDetailHelperTest, CompletedByAccountTypeAndEndTime) {
    const struct {
        const char* what;
        int accountType;             // -1: no account info
        int status, submit, traded;  // of 10
        bool completed;
    } cases[] = {
        {"no account info, cancelled", -1, '6', '3', 0, false},
        {"type 2, fully traded but status 7", 2, '7', '3', 10, false},
        {"type 1, fully traded but status 7", 1, '7', '3', 10, true},
        {"type 1, submit 4 (rejected), status reported", 1, '2', '4', 0, true},
        {"type 2, submit 4 does not count", 2, '2', '4', 0, false},
        {"type 1, submit 3, reported, open", 1, '2', '3', 3, false},
        {"type 1, part cancelled", 1, '5', '3', 3, true},
        {"type 1, cancelled", 1, '6', '3', 0, true},
        {"type 1, succeeded", 1, '8', '3', 10, true},
        {"type 1, junk", 1, '9', '3', 0, true},
        {"type 3, junk", 3, '9', '3', 0, true},
        {"type 7, part traded", 7, '7', '3', 4, false},
        {"type 10, cancelled", 10, '6', '3', 0, true},
        {"type 11, reported", 11, '2', '3', 0, false},
        {"type 1001, reported, open", 1001, '2', '0', 0, false},
    };
    for (const auto& c : cases) {
        OrderBuilder b;
        if (c.accountType >= 0) b.account(makeAccountInfo("a", c.accountType));
        b.status(c.status).submitStatus(c.submit).traded(c.traded);
        EXPECT_EQ(c.completed, COrderDetailHelper::completed(*b.build())) << c.what;
    }

    COrderInfo info;
    const std::pair<double, bool> infos[] = {
        {0.0, false}, {1e-5, false}, {1.1e-5, true}, {1700000000.0, true}, {-5.0, false}};
    for (const auto& c : infos) {
        info.m_dEndTime = c.first;
        EXPECT_EQ(c.second, COrderDetailHelper::completed(info)) << c.first;
    }
}

// isOpen; isMayCauseWithDraw: completed and cancelled; isFrozenMoney: open, unless an operation sells.
TEST(COrderDetailHelperTest, OpenWithdrawAndFrozenMoney) {
    const CAccountInfoPtr futures = makeAccountInfo("f", 1);
    EXPECT_FALSE(COrderDetailHelper::isOpen(COrderDetailPtr()));
    EXPECT_TRUE(COrderDetailHelper::isOpen(OrderBuilder().offset('0').build()));
    EXPECT_FALSE(COrderDetailHelper::isOpen(OrderBuilder().offset('1').build()));

    EXPECT_FALSE(COrderDetailHelper::isMayCauseWithDraw(COrderDetailPtr()));
    const std::pair<int, bool> withdraw[] = {
        {'5', true}, {'6', true}, {'8', false}, {'9', false}, {'2', false}};
    for (const auto& c : withdraw) {
        COrderDetailPtr o = OrderBuilder().account(futures).status(c.first).build();
        EXPECT_EQ(c.second, COrderDetailHelper::isMayCauseWithDraw(o)) << c.first;
    }
    // Status '5' without account info is not complete, so it cannot have caused a withdrawal.
    EXPECT_FALSE(COrderDetailHelper::isMayCauseWithDraw(OrderBuilder().status('5').build()));

    const struct {
        const char* what;
        int operation, direction, status;
        bool frozen;
    } frozen[] = {
        {"no operation, open order", 0, '1', '2', true},
        {"operation 2147483647 counts as none", 2147483647, '1', '2', true},
        {"operation and sell: frees nothing", 19, '1', '2', false},
        {"operation and buy, open", 18, '0', '2', true},
        {"operation and buy, completed", 18, '0', '8', false},
        {"no operation, cancelled", 0, '0', '6', false},
    };
    for (const auto& c : frozen) {
        OrderBuilder b = OrderBuilder().account(futures).operation(c.operation).direction(c.direction);
        EXPECT_EQ(c.frozen, COrderDetailHelper::isFrozenMoney(*b.status(c.status).build())) << c.what;
    }
}

}  // namespace
}  // namespace ttservice
