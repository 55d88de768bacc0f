// Builders of records for tests and benchmarks, with defaults that make a valid record of a
// futures account: exchange "SHFE", instrument "rb2501" (product "rb"), buy, open, speculation.
// Each setter returns the builder; build() makes a new record every call.
//
// Keys that follow from the defaults (see each record class for its rule):
//   order:    "<exchange>_<sysId>" (or the order ref when set)
//   deal:     "<exchange>_<tradeId>_<direction char>"
//   position: "<exchange>_<instrument>_<direction char>_<hedge char>"
#pragma once

#include <string>

#include "records/Records.h"

namespace ttservice {
namespace test {

// A futures account by default (platform 20001, type 1); `type` 2 is a stock account.
CAccountInfoPtr makeAccountInfo(const std::string& accountId = "880001", int accountType = 1,
                                int platformId = 20001);

class OrderBuilder {
public:
    OrderBuilder& account(const CAccountInfoPtr& a) {
        m_account = a;
        return *this;
    }
    OrderBuilder& sysId(const std::string& v) {
        m_sysId = v;
        return *this;
    }
    OrderBuilder& ref(const std::string& v) {
        m_ref = v;
        return *this;
    }
    OrderBuilder& exchange(const std::string& v) {
        m_exchange = v;
        return *this;
    }
    OrderBuilder& instrument(const std::string& v) {
        m_instrument = v;
        return *this;
    }
    OrderBuilder& product(const std::string& v) {
        m_product = v;
        return *this;
    }
    OrderBuilder& direction(int v) {
        m_direction = v;
        return *this;
    }
    OrderBuilder& offset(int v) {
        m_offset = v;
        return *this;
    }
    OrderBuilder& operation(int v) {
        m_operation = v;
        return *this;
    }
    OrderBuilder& status(int v) {
        m_status = v;
        return *this;
    }
    OrderBuilder& submitStatus(int v) {
        m_submitStatus = v;
        return *this;
    }
    OrderBuilder& volume(int v) {
        m_volume = v;
        return *this;
    }
    OrderBuilder& traded(int v) {
        m_traded = v;
        return *this;
    }
    OrderBuilder& price(double v) {
        m_price = v;
        return *this;
    }
    OrderBuilder& frozenMargin(double v) {
        m_frozenMargin = v;
        return *this;
    }
    OrderBuilder& commission(double v) {
        m_commission = v;
        return *this;
    }
    // A CNqOrderTag with this key.
    OrderBuilder& tag(const std::string& v) {
        m_tag = v;
        m_hasTag = true;
        return *this;
    }
    COrderDetailPtr build() const;

private:
    CAccountInfoPtr m_account;
    std::string m_sysId = "1001";
    std::string m_ref;
    std::string m_exchange = "SHFE";
    std::string m_instrument = "rb2501";
    std::string m_product = "rb";
    int m_direction = '0';
    int m_offset = '0';
    int m_operation = 0;
    int m_status = '2';        // reported
    int m_submitStatus = '3';  // accepted
    int m_volume = 10;
    int m_traded = 0;
    double m_price = 3500.0;
    double m_frozenMargin = 0.0;
    double m_commission = 0.0;
    std::string m_tag;
    bool m_hasTag = false;
};

class DealBuilder {
public:
    DealBuilder& account(const CAccountInfoPtr& a) {
        m_account = a;
        return *this;
    }
    DealBuilder& tradeId(const std::string& v) {
        m_tradeId = v;
        return *this;
    }
    DealBuilder& orderSysId(const std::string& v) {
        m_orderSysId = v;
        return *this;
    }
    DealBuilder& exchange(const std::string& v) {
        m_exchange = v;
        return *this;
    }
    DealBuilder& instrument(const std::string& v) {
        m_instrument = v;
        return *this;
    }
    DealBuilder& direction(int v) {
        m_direction = v;
        return *this;
    }
    DealBuilder& offset(int v) {
        m_offset = v;
        return *this;
    }
    DealBuilder& volume(int v) {
        m_volume = v;
        return *this;
    }
    DealBuilder& price(double v) {
        m_price = v;
        return *this;
    }
    DealBuilder& commission(double v) {
        m_commission = v;
        return *this;
    }
    DealBuilder& tradeDate(const std::string& v) {
        m_tradeDate = v;
        return *this;
    }
    CDealDetailPtr build() const;

private:
    CAccountInfoPtr m_account;
    std::string m_tradeId = "T1";
    std::string m_orderSysId = "1001";
    std::string m_exchange = "SHFE";
    std::string m_instrument = "rb2501";
    int m_direction = '0';
    int m_offset = '0';
    int m_volume = 1;
    double m_price = 3500.0;
    double m_commission = 0.0;
    std::string m_tradeDate = "20250102";
};

class PositionBuilder {
public:
    PositionBuilder& account(const CAccountInfoPtr& a) {
        m_account = a;
        return *this;
    }
    PositionBuilder& exchange(const std::string& v) {
        m_exchange = v;
        return *this;
    }
    PositionBuilder& instrument(const std::string& v) {
        m_instrument = v;
        return *this;
    }
    PositionBuilder& direction(int v) {
        m_direction = v;
        return *this;
    }
    PositionBuilder& hedge(int v) {
        m_hedge = v;
        return *this;
    }
    PositionBuilder& volume(int v) {
        m_volume = v;
        return *this;
    }
    PositionBuilder& yesterdayVolume(int v) {
        m_yesterday = v;
        return *this;
    }
    PositionBuilder& openPrice(double v) {
        m_openPrice = v;
        return *this;
    }
    PositionBuilder& openCost(double v) {
        m_openCost = v;
        return *this;
    }
    // A detail line of one opening deal (adds "_<openDate>_<tradeId>" to the key).
    PositionBuilder& detailOf(const std::string& openDate, const std::string& tradeId) {
        m_openDate = openDate;
        m_tradeId = tradeId;
        return *this;
    }
    CPositionDetailPtr build() const;

private:
    CAccountInfoPtr m_account;
    std::string m_exchange = "SHFE";
    std::string m_instrument = "rb2501";
    int m_direction = '0';
    int m_hedge = '1';
    int m_volume = 1;
    int m_yesterday = 0;
    double m_openPrice = 3500.0;
    double m_openCost = 0.0;
    std::string m_openDate;
    std::string m_tradeId;
};

// The account's funds, filed under the account's key.
CAccountDetailPtr makeAccountDetail(const CAccountInfoPtr& account, double balance = 1000000.0);
// A quote: last price and previous close (0 means empty).
CPriceDataPtr makeQuote(const std::string& exchange, const std::string& instrument, double lastPrice,
                        double preClose = 0.0);
CStkCompactsPtr makeCompact(const CAccountInfoPtr& account, const std::string& exchange,
                            const std::string& instrument, const std::string& compactId);
GoldQueryStorageRespPtr makeGoldStorage(const std::string& code, double totalStorage);
CExchangeStatusPtr makeExchangeStatus(const std::string& exchange, int status,
                                      const std::string& product = "");
CInstrumentDetailPtr makeInstrument(const std::string& exchange, const std::string& instrument,
                                    const std::string& product = "", int volumeMultiple = 1);
// An instrument with a name (the product name is derived from it when the data center loads it).
CInstrumentDetailPtr makeNamedInstrument(const std::string& exchange, const std::string& instrument,
                                         const std::string& name, const std::string& product = "");
// The account's fee record of an instrument, filed under "<account key>_<exchange><instrument>".
CInstrumentFeePtr makeInstrumentFee(const CAccountInfoPtr& account, const CInstrumentDetailPtr& instrument);

}  // namespace test
}  // namespace ttservice
