// ttservice::test::StoreTestFixture: the shared set-up of account store tests.
//
// Each test gets a fresh TraderCenter with a FakeDataCenter, a RecordingCalculator and the default
// quote board, and the dispatcher on a manual clock (timers fire only in advance()). Stores made
// by makeStore() are cleared at the end of the test and their cancelled timer handlers run, so no
// timer stays armed into the next test and every store is released.
#pragma once

#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <vector>

#include "base/TraderCenter.h"
#include "base/data/CAccountData.h"
#include "impl/base/QuoteBoard.h"
#include "net/RPCEngine.h"
#include "testing/FakeDataCenter.h"
#include "testing/RecordBuilders.h"
#include "testing/RecordingCalculator.h"

namespace ttservice {
namespace test {

class StoreTestFixture : public ::testing::Test {
protected:
    void SetUp() override {
        TraderCenter::instance()->reset();
        m_dataCenter = boost::make_shared<FakeDataCenter>();
        m_calculator = boost::make_shared<RecordingCalculator>();
        TraderCenter::instance()->setDataCenter(m_dataCenter);
        TraderCenter::instance()->setCalculator(m_calculator);
        m_board = boost::dynamic_pointer_cast<CQuoteBoard>(TraderCenter::instance()->getPrimitive());
        ASSERT_TRUE(m_board);
        ASSERT_TRUE(net::RPCEngine::instance()->useManualClock(
            boost::posix_time::ptime(boost::gregorian::date(2025, 1, 2), boost::posix_time::hours(1))));
        m_info = makeAccountInfo();
    }

    void TearDown() override {
        for (size_t i = 0; i < m_stores.size(); ++i) m_stores[i]->clear();
        net::RPCEngine::instance()->poll();  // cancelled waits release their stores
        // Every store goes before the quote board, whose subscriptions the stores hold.
        m_dataCenter->clearAccounts();
        m_calculator->clear();
        m_stores.clear();
        TraderCenter::instance()->reset();
        net::RPCEngine::instance()->useSystemClock();
    }

    // A store of `info` (the fixture's account by default), registered in the data center unless
    // told otherwise, not initialised.
    CAccountDataPtr makeStore(int interval = 1000, bool registered = true,
                              CAccountInfoPtr info = CAccountInfoPtr()) {
        if (!info) info = m_info;
        CAccountDataPtr store = boost::make_shared<CAccountData>(interval);
        store->setAccountInfo(info);
        if (registered) m_dataCenter->addAccount(info->getKey(), store);
        m_stores.push_back(store);
        return store;
    }

    // Moves the manual clock forward; returns how many timer handlers fired.
    size_t advanceMs(long ms) {
        return net::RPCEngine::instance()->advanceClock(boost::posix_time::milliseconds(ms));
    }

    boost::shared_ptr<FakeDataCenter> m_dataCenter;
    boost::shared_ptr<RecordingCalculator> m_calculator;
    boost::shared_ptr<CQuoteBoard> m_board;
    CAccountInfoPtr m_info;
    std::vector<CAccountDataPtr> m_stores;
};

}  // namespace test
}  // namespace ttservice
