// Enumerations of the record library. The numeric values are the contract with the trading back
// end and the other modules; the enumerator names are descriptive. Every enumeration is declared
// from one list so that TypeManager::getEnumItemName can print any value.
#pragma once

#define TT_ENUM_ITEM_(name, value) name = value,
#define TT_DEFINE_ENUM(NAME, LIST) enum NAME : int { LIST(TT_ENUM_ITEM_) };

namespace ttservice {

// Operation of an order, as the order entry names it.
#define TT_ENUM_EOperationType(X)                       \
    X(OPT_OPEN_LONG, 0)                                 \
    X(OPT_CLOSE_LONG_HISTORY, 1)                        \
    X(OPT_CLOSE_LONG_TODAY, 2)                          \
    X(OPT_OPEN_SHORT, 3)                                \
    X(OPT_CLOSE_SHORT_HISTORY, 4)                       \
    X(OPT_CLOSE_SHORT_TODAY, 5)                         \
    X(OPT_CLOSE_LONG_TODAY_FIRST, 6)                    \
    X(OPT_CLOSE_LONG_HISTORY_FIRST, 7)                  \
    X(OPT_CLOSE_SHORT_TODAY_FIRST, 8)                   \
    X(OPT_CLOSE_SHORT_HISTORY_FIRST, 9)                 \
    X(OPT_CLOSE_LONG_TODAY_HISTORY_THEN_OPEN_SHORT, 10) \
    X(OPT_CLOSE_LONG_HISTORY_TODAY_THEN_OPEN_SHORT, 11) \
    X(OPT_CLOSE_SHORT_TODAY_HISTORY_THEN_OPEN_LONG, 12) \
    X(OPT_CLOSE_SHORT_HISTORY_TODAY_THEN_OPEN_LONG, 13) \
    X(OPT_CLOSE_LONG, 14)                               \
    X(OPT_CLOSE_SHORT, 15)                              \
    X(OPT_OPEN, 16)                                     \
    X(OPT_CLOSE, 17)                                    \
    X(OPT_BUY, 18)                                      \
    X(OPT_SELL, 19)                                     \
    X(OPT_FIN_BUY, 20)                                  \
    X(OPT_SLO_SELL, 21)                                 \
    X(OPT_BUY_SECU_REPAY, 22)                           \
    X(OPT_DIRECT_SECU_REPAY, 23)                        \
    X(OPT_SELL_CASH_REPAY, 24)                          \
    X(OPT_DIRECT_CASH_REPAY, 25)                        \
    X(OPT_FUND_SUBSCRIBE, 26)                           \
    X(OPT_FUND_REDEMPTION, 27)                          \
    X(OPT_FUND_MERGE, 28)                               \
    X(OPT_FUND_SPLIT, 29)                               \
    X(OPT_PLEDGE_IN, 30)                                \
    X(OPT_PLEDGE_OUT, 31)                               \
    X(OPT_OPTION_BUY_OPEN, 32)                          \
    X(OPT_OPTION_SELL_CLOSE, 33)                        \
    X(OPT_OPTION_SELL_OPEN, 34)                         \
    X(OPT_OPTION_BUY_CLOSE, 35)                         \
    X(OPT_OPTION_COVERED_OPEN, 36)                      \
    X(OPT_OPTION_COVERED_CLOSE, 37)                     \
    X(OPT_OPTION_CALL_EXERCISE, 38)                     \
    X(OPT_OPTION_PUT_EXERCISE, 39)                      \
    X(OPT_OPTION_SECU_LOCK, 40)                         \
    X(OPT_OPTION_SECU_UNLOCK, 41)                       \
    X(OPT_COLLATERAL_BUY, 42)                           \
    X(OPT_COLLATERAL_SELL, 43)                          \
    X(OPT_COLLATERAL_TRANSFER_IN, 44)                   \
    X(OPT_COLLATERAL_TRANSFER_OUT, 45)                  \
    X(OPT_ETF_PURCHASE, 46)                             \
    X(OPT_ETF_REDEMPTION, 47)                           \
    X(OPT_REPO_BUY, 48)                                 \
    X(OPT_REPO_SELL, 49)                                \
    X(OPT_FUTURE_OPTION_EXERCISE, 50)                   \
    X(OPT_N3B_PRICE_BUY, 51)                            \
    X(OPT_N3B_PRICE_SELL, 52)                           \
    X(OPT_N3B_CONFIRM_BUY, 53)                          \
    X(OPT_N3B_CONFIRM_SELL, 54)                         \
    X(OPT_LOF_PURCHASE, 55)                             \
    X(OPT_LOF_REDEMPTION, 56)                           \
    X(OPT_IPO_SUBSCRIBE, 1004)                          \
    X(OPT_IPO_CANCEL, 1005)                             \
    X(OPT_BOND_BUY, 1006)                               \
    X(OPT_BOND_SELL_OPEN, 1007)                         \
    X(OPT_BOND_CONVERT, 1010)                           \
    X(OPT_INTERBANK_BUY, 1011)                          \
    X(OPT_INTERBANK_SELL, 1012)                         \
    X(OPT_INTERBANK_REPO_BUY, 1013)                     \
    X(OPT_INTERBANK_REPO_SELL, 1014)                    \
    X(OPT_GOLD_DEFER_BUY, 1019)                         \
    X(OPT_GOLD_DEFER_OPEN, 1020)                        \
    X(OPT_GOLD_DEFER_SELL, 1021)                        \
    X(OPT_GOLD_DEFER_CLOSE, 1022)                       \
    X(OPT_INVALID, -1)
TT_DEFINE_ENUM(EOperationType, TT_ENUM_EOperationType)

#define TT_ENUM_EOrderType(X)     \
    X(OTP_NORMAL, 0)              \
    X(OTP_CONDITION, 1)           \
    X(OTP_STOP_LOSS, 2)           \
    X(OTP_BATCH, 3)               \
    X(OTP_ALGO_ZXJT, 4)           \
    X(OTP_ALGO_ZSGS, 5)           \
    X(OTP_GROUP, 6)               \
    X(OTP_PORTFOLIO, 7)           \
    X(OTP_ALGO_ZXZQ, 8)           \
    X(OTP_ALGO_GENUS, 9)          \
    X(OTP_ALGO_JAZZ, 10)          \
    X(OTP_TWAP, 11)               \
    X(OTP_VWAP, 12)               \
    X(OTP_ALGO_NQ, 13)
TT_DEFINE_ENUM(EOrderType, TT_ENUM_EOrderType)

#define TT_ENUM_ETradePlatform(X) \
    X(TPF_NONE, 0)                \
    X(TPF_BROKER, 1)              \
    X(TPF_LOCAL, 2)               \
    X(TPF_ALGO_ZXJT, 3)           \
    X(TPF_SMART, 4)               \
    X(TPF_ALGO_ZSGS, 5)           \
    X(TPF_RISK, 6)                \
    X(TPF_ALGO_ZXZQ, 7)           \
    X(TPF_ALGO_GENUS, 8)          \
    X(TPF_ALGO_JAZZ, 9)           \
    X(TPF_TWAP, 10)               \
    X(TPF_ALGO_NQ, 11)
TT_DEFINE_ENUM(ETradePlatform, TT_ENUM_ETradePlatform)

#define TT_ENUM_EOrderCommandStatus(X) \
    X(OCS_CREATED, 0)                  \
    X(OCS_FINISHED, 1)                 \
    X(OCS_RUNNING, 2)                  \
    X(OCS_PAUSED, 3)                   \
    X(OCS_CANCELED, 4)                 \
    X(OCS_STOPPED, 5)                  \
    X(OCS_APPROVING, 6)                \
    X(OCS_REJECTED, 7)                 \
    X(OCS_CANCELING, 8)                \
    X(OCS_UNKNOWN, -1)                 \
    X(OCS_FORCE_FINISHED, 202)
TT_DEFINE_ENUM(EOrderCommandStatus, TT_ENUM_EOrderCommandStatus)

#define TT_ENUM_ENqStopLossType(X)   \
    X(NQ_STOPLOSS_NONE, 0)           \
    X(NQ_STOPLOSS_MANUAL, 1)         \
    X(NQ_STOPLOSS_CONDITION, 2)      \
    X(NQ_STOPLOSS_SYS_PRICE, 3)      \
    X(NQ_STOPLOSS_SYS_TRAILING, 4)   \
    X(NQ_STOPLOSS_SYS_PROFIT, 5)     \
    X(NQ_STOPLOSS_SYS_TIME, 6)       \
    X(NQ_STOPLOSS_USER, 7)
TT_DEFINE_ENUM(ENqStopLossType, TT_ENUM_ENqStopLossType)

// Exchange status: character codes.
#define TT_ENUM_EExchangeStatus(X)              \
    X(EXCHANGE_STATUS_BEFORE_TRADING, 48)       \
    X(EXCHANGE_STATUS_NO_TRADING, 49)           \
    X(EXCHANGE_STATUS_CONTINOUS, 50)            \
    X(EXCHANGE_STATUS_AUCTION_ORDERING, 51)     \
    X(EXCHANGE_STATUS_AUCTION_BALANCE, 52)      \
    X(EXCHANGE_STATUS_AUCTION_MATCH, 53)        \
    X(EXCHANGE_STATUS_CLOSED, 54)               \
    X(EXCHANGE_STATUS_UNKNOWN, 0)
TT_DEFINE_ENUM(EExchangeStatus, TT_ENUM_EExchangeStatus)

// Offset flags: character codes, -1 none.
#define TT_ENUM_EOffset_Flag_Type(X)    \
    X(EOFF_THOST_FTDC_OF_INVALID, -1)   \
    X(EOFF_THOST_FTDC_OF_Open, 48)      \
    X(EOFF_THOST_FTDC_OF_Close, 49)     \
    X(EOFF_THOST_FTDC_OF_ForceClose, 50) \
    X(EOFF_THOST_FTDC_OF_CloseToday, 51) \
    X(EOFF_THOST_FTDC_OF_CloseYesterday, 52) \
    X(EOFF_THOST_FTDC_OF_PledgeIn, 81)  \
    X(EOFF_THOST_FTDC_OF_PledgeOut, 66) \
    X(EOFF_THOST_FTDC_OF_Exercise, 68)
TT_DEFINE_ENUM(EOffset_Flag_Type, TT_ENUM_EOffset_Flag_Type)

// Entrust status of an order: character codes. '5', '6', '8' and '9' end an order.
#define TT_ENUM_EEntrustStatus(X)               \
    X(ENTRUST_STATUS_UNREPORTED, 48)            \
    X(ENTRUST_STATUS_WAIT_REPORTING, 49)        \
    X(ENTRUST_STATUS_REPORTED, 50)              \
    X(ENTRUST_STATUS_REPORTED_CANCEL, 51)       \
    X(ENTRUST_STATUS_PARTSUCC_CANCEL, 52)       \
    X(ENTRUST_STATUS_PART_CANCEL, 53)           \
    X(ENTRUST_STATUS_CANCELED, 54)              \
    X(ENTRUST_STATUS_PART_SUCC, 55)             \
    X(ENTRUST_STATUS_SUCCEEDED, 56)             \
    X(ENTRUST_STATUS_JUNK, 57)                  \
    X(ENTRUST_STATUS_UNKNOWN, 0)
TT_DEFINE_ENUM(EEntrustStatus, TT_ENUM_EEntrustStatus)

// Order submit status: character codes; above '3' the order has left the submit path.
#define TT_ENUM_EEntrustSubmitStatus(X)         \
    X(ENTRUST_SUBMIT_INSERT_SUBMITTED, 48)      \
    X(ENTRUST_SUBMIT_CANCEL_SUBMITTED, 49)      \
    X(ENTRUST_SUBMIT_MODIFY_SUBMITTED, 50)      \
    X(ENTRUST_SUBMIT_ACCEPTED, 51)              \
    X(ENTRUST_SUBMIT_INSERT_REJECTED, 52)       \
    X(ENTRUST_SUBMIT_CANCEL_REJECTED, 53)       \
    X(ENTRUST_SUBMIT_MODIFY_REJECTED, 54)       \
    X(ENTRUST_SUBMIT_UNKNOWN, 0)
TT_DEFINE_ENUM(EEntrustSubmitStatus, TT_ENUM_EEntrustSubmitStatus)

// Which quote field an order or a valuation uses.
#define TT_ENUM_EPriceType(X)          \
    X(PRTP_SALE5, 0)                   \
    X(PRTP_SALE4, 1)                   \
    X(PRTP_SALE3, 2)                   \
    X(PRTP_SALE2, 3)                   \
    X(PRTP_SALE1, 4)                   \
    X(PRTP_LATEST, 5)                  \
    X(PRTP_BUY1, 6)                    \
    X(PRTP_BUY2, 7)                    \
    X(PRTP_BUY3, 8)                    \
    X(PRTP_BUY4, 9)                    \
    X(PRTP_BUY5, 10)                   \
    X(PRTP_FIX, 11)                    \
    X(PRTP_MARKET, 12)                 \
    X(PRTP_HANG, 13)                   \
    X(PRTP_COMPETE, 14)
TT_DEFINE_ENUM(EPriceType, TT_ENUM_EPriceType)

#define TT_ENUM_ENqAccountStatus(X)    \
    X(NQ_ACCOUNT_STATUS_INVALID, -1)   \
    X(NQ_ACCOUNT_STATUS_OK, 0)         \
    X(NQ_ACCOUNT_STATUS_WAITING_LOGIN, 1) \
    X(NQ_ACCOUNT_STATUS_LOGINING, 2)   \
    X(NQ_ACCOUNT_STATUS_FAIL, 3)       \
    X(NQ_ACCOUNT_STATUS_INITING, 4)    \
    X(NQ_ACCOUNT_STATUS_CORRECTING, 5) \
    X(NQ_ACCOUNT_STATUS_CLOSED, 6)     \
    X(NQ_ACCOUNT_STATUS_PWD_ERROR, 7)  \
    X(NQ_ACCOUNT_STATUS_STOP, 8)
TT_DEFINE_ENUM(ENqAccountStatus, TT_ENUM_ENqAccountStatus)

#define TT_ENUM_ENqKlineDataStatus(X)  \
    X(NQ_KLINE_STATUS_NONE, 0)         \
    X(NQ_KLINE_STATUS_LOADING, 1)      \
    X(NQ_KLINE_STATUS_LOADED, 2)       \
    X(NQ_KLINE_STATUS_FAILED, 3)
TT_DEFINE_ENUM(ENqKlineDataStatus, TT_ENUM_ENqKlineDataStatus)

// Futures trade type of a position.
#define TT_ENUM_EFutureTradeType(X)    \
    X(FUTRADE_TRADE_TYPE_COMMON, 48)   \
    X(FUTRADE_TRADE_TYPE_OPTION_EXECUTION, 49) \
    X(FUTRADE_TRADE_TYPE_OTC, 50)      \
    X(FUTRADE_TRADE_TYPE_EFP_DERIVED, 51) \
    X(FUTRADE_TRADE_TYPE_COMBINATION_DERIVED, 52)
TT_DEFINE_ENUM(EFutureTradeType, TT_ENUM_EFutureTradeType)

// Character codes of directions and hedge flags.
enum { DIRECTION_FLAG_BUY = 48, DIRECTION_FLAG_SELL = 49 };
enum { HEDGE_FLAG_SPECULATION = 49, HEDGE_FLAG_ARBITRAGE = 50, HEDGE_FLAG_HEDGE = 51 };

}  // namespace ttservice
