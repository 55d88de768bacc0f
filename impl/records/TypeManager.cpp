#include "records/TypeManager.h"

#include "RecordCodec.h"
#include "records/Records.h"
#include "utils/LogCenter.h"

#include <cstdio>

namespace ttservice {

TypeManager& TypeManager::instance() {
    static TypeManager manager;
    return manager;
}

#define TT_REGISTER_ENUM_ITEM_(name, value) \
    names[value] = #name;                   \
    values[#name] = value;
#define TT_REGISTER_ENUM(NAME)                                   \
    {                                                            \
        std::map<int, std::string>& names = m_enumNames[#NAME];  \
        std::map<std::string, int>& values = m_enumValues[#NAME]; \
        TT_ENUM_##NAME(TT_REGISTER_ENUM_ITEM_)                   \
    }

TypeManager::TypeManager() {
    const RecordType* builtins[] = {
        &CAccountInfo::staticType(), &CAccountDetail::staticType(), &CFtAccountDetail::staticType(),
        &CCreditAccountDetail::staticType(), &CAccountSummary::staticType(), &CCalcInfo::staticType(),
        &CAccountCalcInfo::staticType(), &CFtConfigAccount::staticType(), &CProduct::staticType(),
        &CStructVolume::staticType(), &CNqOrderTag::staticType(), &COrderDetail::staticType(),
        &CDealDetail::staticType(), &CPositionDetail::staticType(), &CPositionStatics::staticType(),
        &CCombinePositionDetail::staticType(), &COrderCommand::staticType(), &CTaskDetail::staticType(),
        &COrderInfo::staticType(), &COrderError::staticType(), &CCancelError::staticType(),
        &CStkCompacts::staticType(), &CStkSubjects::staticType(), &CStkClosedCompacts::staticType(),
        &CPositionTradeTable::staticType(), &CStructeFundPositiondetail::staticType(),
        &GoldQueryStorageResp::staticType(), &CPortfolio::staticType(), &CInstrumentDetail::staticType(),
        &CPriceData::staticType(), &CExchangeDetail::staticType(), &CExchangeStatus::staticType(),
        &CExchangeRate::staticType(), &CValueRange::staticType(), &CSettlementRateInfoConfig::staticType(),
        &CStkExchange::staticType(), &CStockOptionFeeItem::staticType(), &CForeignFee::staticType(),
        &CInstrumentFee::staticType(), &CGroupCategorySubInfo::staticType(), &CCustomStockFeeRate::staticType(),
        &CCustomFutureFeeRate::staticType(), &CCustomHKFeeRate::staticType(), &CCustomSPFeeRate::staticType(),
        &CCustomStockInstrumentFee::staticType(), &CCustomFutureInstrumentFee::staticType(),
        &CCustomHGTInstrumentFee::staticType(), &CCustomSgtInstrumentFee::staticType(),
        &CCustomSPInstrumentFee::staticType()};
    for (const RecordType* t : builtins) registerType(*t);

    TT_REGISTER_ENUM(EOperationType)
    TT_REGISTER_ENUM(EOrderType)
    TT_REGISTER_ENUM(ETradePlatform)
    TT_REGISTER_ENUM(EOrderCommandStatus)
    TT_REGISTER_ENUM(ENqStopLossType)
    TT_REGISTER_ENUM(EExchangeStatus)
    TT_REGISTER_ENUM(EOffset_Flag_Type)
    TT_REGISTER_ENUM(EEntrustStatus)
    TT_REGISTER_ENUM(EEntrustSubmitStatus)
    TT_REGISTER_ENUM(EPriceType)
    TT_REGISTER_ENUM(ENqAccountStatus)
    TT_REGISTER_ENUM(ENqKlineDataStatus)
    TT_REGISTER_ENUM(EFutureTradeType)
}

void TypeManager::registerType(const RecordType& type) {
    m_byId[type.typeId] = &type;
    m_byName[type.name] = &type;
}

IDataPtr TypeManager::parse(const bson::BSONObj& obj) const {
    // The reason is gathered only when the line will be written.
    if (obj.isEmpty() || !utils::logOn(utils::LOGGER_STD, utils::TT_LOG_WARN)) return parse(obj, nullptr);
    std::string error;
    IDataPtr rec = parse(obj, &error);
    if (!error.empty()) TT_LOG_STD_WARN("TypeManager::parse: %1%", error);
    return rec;
}

IDataPtr TypeManager::parse(const bson::BSONObj& obj, std::string* error) const {
    if (error) error->clear();
    if (obj.isEmpty()) {
        if (error) *error = "empty document";
        return IDataPtr();
    }
    bson_t view;
    if (!obj.view(&view)) {
        if (error) *error = "corrupt document";
        return IDataPtr();
    }
    int bad = 0;
    std::string problems;
    IDataPtr rec = records::parseDocument(&view, &bad, &problems, error);
    if (rec && bad && error) *error = "fields of the wrong type left at their defaults: " + problems;
    return rec;
}

IDataPtr TypeManager::create(int typeId) const {
    const RecordType* t = findType(typeId);
    return t ? t->create() : IDataPtr();
}

IDataPtr TypeManager::create(const std::string& className) const {
    const RecordType* t = findType(className);
    return t ? t->create() : IDataPtr();
}

const RecordType* TypeManager::findType(int typeId) const {
    std::map<int, const RecordType*>::const_iterator it = m_byId.find(typeId);
    return it == m_byId.end() ? nullptr : it->second;
}

const RecordType* TypeManager::findType(const std::string& className) const {
    std::map<std::string, const RecordType*>::const_iterator it = m_byName.find(className);
    return it == m_byName.end() ? nullptr : it->second;
}

std::vector<const RecordType*> TypeManager::types() const {
    std::vector<const RecordType*> out;
    for (const auto& kv : m_byId) out.push_back(kv.second);
    return out;
}

std::string TypeManager::getEnumItemName(const std::string& enumName, int value) const {
    auto e = m_enumNames.find(enumName);
    if (e != m_enumNames.end()) {
        auto v = e->second.find(value);
        if (v != e->second.end()) return v->second;
    }
    return std::to_string(value);
}

bool TypeManager::getEnumItemValue(const std::string& enumName, const std::string& itemName, int& value) const {
    auto e = m_enumValues.find(enumName);
    if (e == m_enumValues.end()) return false;
    auto v = e->second.find(itemName);
    if (v == e->second.end()) return false;
    value = v->second;
    return true;
}

}  // namespace ttservice
