// Completion rules of orders: which orders are finished, per account type, and what follows.
#include <gtest/gtest.h>

#include "base/data/COrderDetailHelper.h"
#include "testing/RecordBuilders.h"

namespace ttservice {
namespace {

using test::makeAccountInfo;
using test::OrderBuilder;

TEST(COrderDetailHelperTest, StatusTestsOfEveryMarketVariant) {
    struct Case {
        int status;
        bool ends;
    } cases[] = {{'0', false}, {'1', false}, {'2', false}, {'3', false}, {'4', false}, {'5', true},
                 {'6', true},  {'7', false}, {'8', true},  {'9', true},  {0, false},   {'a', false}};
    for (const Case& c : cases) {
        const EEntrustStatus s = static_cast<EEntrustStatus>(c.status);
        EXPECT_EQ(c.ends, COrderDetailHelper::isStkComplete(s)) << c.status;
        EXPECT_EQ(c.ends, COrderDetailHelper::isHGTComplete(s)) << c.status;
        EXPECT_EQ(c.ends, COrderDetailHelper::isSgtComplete(s)) << c.status;
    }
    struct TextCase {
        const char* status;
        bool ends;
    } texts[] = {{"", false}, {"5", true},  {"5x", true}, {"x5", false},
                 {"9", true}, {"7", false}, {"68", true}};
    for (const TextCase& c : texts) {
        EXPECT_EQ(c.ends, COrderDetailHelper::isStkComplete(std::string(c.status))) << c.status;
        EXPECT_EQ(c.ends, COrderDetailHelper::isHGTComplete(std::string(c.status))) << c.status;
        EXPECT_EQ(c.ends, COrderDetailHelper::isSgtComplete(std::string(c.status))) << c.status;
    }
}

TEST(COrderDetailHelperTest, CompletedByAccountType) {
    struct Case {
        const char* what;
        int accountType;  // -1: no account info
        int status;
        int submit;
        int volume;
        int traded;
        bool completed;
    } cases[] = {
        {"no account info, cancelled", -1, '6', '3', 10, 0, false},
        {"type 2, fully traded but status 7", 2, '7', '3', 10, 10, false},
        {"type 1, fully traded but status 7", 1, '7', '3', 10, 10, true},
        {"type 1, submit 4 (rejected), status reported", 1, '2', '4', 10, 0, true},
        {"type 2, submit 4 does not count", 2, '2', '4', 10, 0, false},
        {"type 1, submit 3, reported, open", 1, '2', '3', 10, 3, false},
        {"type 1, part cancelled", 1, '5', '3', 10, 3, true},
        {"type 1, cancelled", 1, '6', '3', 10, 0, true},
        {"type 1, succeeded", 1, '8', '3', 10, 10, true},
        {"type 1, junk", 1, '9', '3', 10, 0, true},
        {"type 3, junk", 3, '9', '3', 10, 0, true},
        {"type 7, part traded", 7, '7', '3', 10, 4, false},
        {"type 10, cancelled", 10, '6', '3', 10, 0, true},
        {"type 11, reported", 11, '2', '3', 10, 0, false},
        {"type 1001, reported, open", 1001, '2', '0', 10, 0, false},
    };
    for (const Case& c : cases) {
        OrderBuilder b;
        if (c.accountType >= 0) b.account(makeAccountInfo("a", c.accountType));
        COrderDetailPtr o =
            b.status(c.status).submitStatus(c.submit).volume(c.volume).traded(c.traded).build();
        EXPECT_EQ(c.completed, COrderDetailHelper::completed(*o)) << c.what;
    }
}

TEST(COrderDetailHelperTest, CompletedOrderInfoByEndTime) {
    COrderInfo info;
    const struct {
        double endTime;
        bool completed;
    } cases[] = {{0.0, false}, {1e-5, false}, {1.1e-5, true}, {1700000000.0, true}, {-5.0, false}};
    for (const auto& c : cases) {
        info.m_dEndTime = c.endTime;
        EXPECT_EQ(c.completed, COrderDetailHelper::completed(info)) << c.endTime;
    }
}

TEST(COrderDetailHelperTest, OpenWithdrawAndFrozenMoney) {
    const CAccountInfoPtr futures = makeAccountInfo("f", 1);
    EXPECT_FALSE(COrderDetailHelper::isOpen(COrderDetailPtr()));
    EXPECT_TRUE(COrderDetailHelper::isOpen(OrderBuilder().offset('0').build()));
    EXPECT_FALSE(COrderDetailHelper::isOpen(OrderBuilder().offset('1').build()));

    struct WithdrawCase {
        int status;
        bool may;
    } withdraw[] = {{'5', true}, {'6', true}, {'8', false}, {'9', false}, {'2', false}};
    EXPECT_FALSE(COrderDetailHelper::isMayCauseWithDraw(COrderDetailPtr()));
    for (const WithdrawCase& c : withdraw)
        EXPECT_EQ(c.may, COrderDetailHelper::isMayCauseWithDraw(
                             OrderBuilder().account(futures).status(c.status).build()))
            << c.status;
    // Status '5' without account info is not complete, so it cannot have caused a withdrawal.
    EXPECT_FALSE(COrderDetailHelper::isMayCauseWithDraw(OrderBuilder().status('5').build()));

    struct FrozenCase {
        const char* what;
        int operation;
        int direction;
        int status;
        bool frozen;
    } frozen[] = {
        {"no operation, open order", 0, '1', '2', true},
        {"operation 2147483647 counts as none", 2147483647, '1', '2', true},
        {"operation and sell: frees nothing", 19, '1', '2', false},
        {"operation and buy, open", 18, '0', '2', true},
        {"operation and buy, completed", 18, '0', '8', false},
        {"no operation, cancelled", 0, '0', '6', false},
    };
    for (const FrozenCase& c : frozen) {
        COrderDetailPtr o = OrderBuilder()
                                .account(futures)
                                .operation(c.operation)
                                .direction(c.direction)
                                .status(c.status)
                                .build();
        EXPECT_EQ(c.frozen, COrderDetailHelper::isFrozenMoney(*o)) << c.what;
    }
}

}  // namespace
}  // namespace ttservice
