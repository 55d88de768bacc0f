#include "base/data/COrderDetailHelper.h"

namespace ttservice {

namespace {

const double kEpsilon = 1e-5;

bool endsOrder(int status) {
    return status == '5' || status == '6' || status == '8' || status == '9';
}

}  // namespace

bool COrderDetailHelper::isStkComplete(EEntrustStatus status) {
    return endsOrder(status);
}
bool COrderDetailHelper::isHGTComplete(EEntrustStatus status) {
    return endsOrder(status);
}
bool COrderDetailHelper::isSgtComplete(EEntrustStatus status) {
    return endsOrder(status);
}

bool COrderDetailHelper::isStkComplete(const std::string& status) {
    return !status.empty() &&
           isStkComplete(static_cast<EEntrustStatus>(static_cast<unsigned char>(status[0])));
}
bool COrderDetailHelper::isHGTComplete(const std::string& status) {
    return !status.empty() &&
           isHGTComplete(static_cast<EEntrustStatus>(static_cast<unsigned char>(status[0])));
}
bool COrderDetailHelper::isSgtComplete(const std::string& status) {
    return !status.empty() &&
           isSgtComplete(static_cast<EEntrustStatus>(static_cast<unsigned char>(status[0])));
}

bool COrderDetailHelper::isStatusOnlyAccountType(int accountType) {
    return accountType == 2 || accountType == 3 || accountType == 7 || accountType == 10 || accountType == 11;
}

bool COrderDetailHelper::completed(const COrderDetail& order) {
    if (!order.m_accountInfo) return false;
    const int status = order.m_eOrderStatus;
    if (isStatusOnlyAccountType(order.m_accountInfo->m_nAccountType)) return endsOrder(status);
    if (order.m_eOrderSubmitStatus > '3') return true;
    if (status == '8' || status == '6' || status == '5') return true;
    if (order.m_nVolumeTraded == order.m_nVolumeTotalOriginal) return true;
    return status == '9';
}

bool COrderDetailHelper::completed(const COrderInfo& order) {
    return order.m_dEndTime > kEpsilon;
}

bool COrderDetailHelper::isOpen(const COrderDetailPtr& order) {
    return order && order->m_nOffsetFlag == '0';
}

bool COrderDetailHelper::isMayCauseWithDraw(const COrderDetailPtr& order) {
    return order && completed(*order) && (order->m_eOrderStatus == '5' || order->m_eOrderStatus == '6');
}

bool COrderDetailHelper::isFrozenMoney(const COrderDetail& order) {
    const int op = order.m_eOperationType;
    if (op != 2147483647 && op != 0 && order.m_nDirection != '0') return false;
    return !completed(order);
}

}  // namespace ttservice
