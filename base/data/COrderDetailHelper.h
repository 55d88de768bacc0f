// ttservice::COrderDetailHelper: whether an order is finished, and what follows from that.
//
// Static operations with no state; any thread. Records are read without taking their IData::Lock:
// a caller that reads an order another thread may be updating holds one.
//
// Statuses that end an order: entrust status '5' (part traded, rest cancelled), '6' (cancelled),
// '8' (fully traded) and '9' (junk, rejected). The market variants of the status test (stock,
// Shanghai-Hong Kong connect, Shenzhen-Hong Kong connect) are separate operations on purpose: each
// market may diverge without touching the others.
#pragma once

#include <string>

#include "records/Records.h"

namespace ttservice {

class COrderDetailHelper {
public:
    static bool isStkComplete(EEntrustStatus status);
    static bool isHGTComplete(EEntrustStatus status);
    static bool isSgtComplete(EEntrustStatus status);
    // false for an empty string, else the test above on the first character.
    static bool isStkComplete(const std::string& status);
    static bool isHGTComplete(const std::string& status);
    static bool isSgtComplete(const std::string& status);

    // An order without account info is never complete. Account types 2, 3, 7, 10 and 11: exactly
    // when the entrust status ends the order. Any other type: when the submit status is above '3',
    // or the entrust status is '8', '6' or '5', or the whole volume has traded, or the entrust
    // status is '9'.
    static bool completed(const COrderDetail& order);
    // An order info is complete once its end time (m_dEndTime) is above 1e-5.
    static bool completed(const COrderInfo& order);

    // The pointer is set and the offset flag is '0' (open).
    static bool isOpen(const COrderDetailPtr& order);
    // The pointer is set, the order is complete and its entrust status is '5' or '6'.
    static bool isMayCauseWithDraw(const COrderDetailPtr& order);
    // An order with an operation code (neither 2147483647 nor 0) whose direction is not '0' freezes
    // no money; every other order freezes money while it is not complete.
    static bool isFrozenMoney(const COrderDetail& order);

    // Account types whose completion is decided by the entrust status alone.
    static bool isStatusOnlyAccountType(int accountType);
};

}  // namespace ttservice
