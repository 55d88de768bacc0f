// Record library: every class round-trips through BSON, TypeManager and JSON with every field
// intact; the kind rule; generic access by ITEM_ number; bad documents rejected cleanly.
#include "bson/BSONObj.h"
#include "records/RecordJson.h"
#include "records/Records.h"
#include "testing/LogCapture.h"

#include <gtest/gtest.h>

#include <boost/thread/thread.hpp>

#include <cmath>
#include <cstdint>
#include <random>

using namespace ttservice;

namespace {

// Gives every field of `rec` a value different from its default, so that a round trip that drops
// or mixes up any field is caught. Nested records are made of the first class the field accepts.
// Kept out of interprocedural optimisation: g++ 12 at -O3 clones this self-recursive function per
// constant depth and the clones call the wrong one (found with -fno-ipa-cp making it pass).
#if defined(__GNUC__) && !defined(__clang__)
__attribute__((noipa))
#endif
void fillAll(IData& rec, int seed) {
    const RecordType& t = rec.recordType();
    for (int i = 0; i < static_cast<int>(t.fields.size()); ++i) {
        const FieldInfo& f = t.fields[i];
        const int v = seed * 100 + i + 1;
        switch (f.kind) {
        case EFieldKind::Int32:
        case EFieldKind::Enum: ASSERT_TRUE(rec.setInt(i, v)); break;
        case EFieldKind::Int64: ASSERT_TRUE(rec.setInt(i, int64_t(v) * 10000000000LL)); break;
        case EFieldKind::Double: ASSERT_TRUE(rec.setDouble(i, v + 0.25)); break;
        case EFieldKind::Bool: ASSERT_TRUE(rec.setBool(i, !rec.getInt(i))); break;
        case EFieldKind::String: ASSERT_TRUE(rec.setString(i, "s" + std::to_string(v) + "\xe4\xb8\xad")); break;
        case EFieldKind::Record: {
            bool set = false;
            for (const RecordType* cand : TypeManager::instance().types()) {
                IDataPtr nested = cand->create();
                if (seed < 3) fillAll(*nested, seed + 1);
                if (rec.setData(i, nested)) {
                    set = true;
                    break;
                }
            }
            ASSERT_TRUE(set) << t.name << "." << f.name;
            break;
        }
        default: {
            // Containers: set through JSON, trying element classes until one is accepted.
            Json::Value doc(Json::objectValue);
            bool set = false;
            if (f.kind == EFieldKind::StringList) {
                doc[f.name].append("a" + std::to_string(v));
                doc[f.name].append("b");
                set = records::fromJsonValue(doc, rec, nullptr);
            } else if (f.kind == EFieldKind::DoubleMap) {
                doc[f.name]["USD"] = 7.1;
                doc[f.name]["HKD"] = 0.91 + v;
                set = records::fromJsonValue(doc, rec, nullptr);
            } else if (f.kind == EFieldKind::StringListMap) {
                doc[f.name]["10001"].append("600000");
                doc[f.name]["10001"].append("60000" + std::to_string(v % 10));
                set = records::fromJsonValue(doc, rec, nullptr);
            } else if (f.kind == EFieldKind::Int64List) {
                doc[f.name].append(Json::Int64(v));
                set = records::fromJsonValue(doc, rec, nullptr);
            } else {
                for (const RecordType* cand : TypeManager::instance().types()) {
                    IDataPtr nested = cand->create();
                    if (seed < 3) fillAll(*nested, seed + 1);
                    Json::Value elem;
                    records::toJsonValue(*nested, elem);
                    doc = Json::Value(Json::objectValue);
                    if (f.kind == EFieldKind::RecordList) {
                        doc[f.name].append(elem);
                        doc[f.name].append(elem);
                    } else {
                        doc[f.name]["k" + std::to_string(v)] = elem;
                    }
                    if (records::fromJsonValue(doc, rec, nullptr)) {
                        set = true;
                        break;
                    }
                }
            }
            ASSERT_TRUE(set) << t.name << "." << f.name;
        }
        }
    }
}

}  // namespace

TEST(Records, EveryClassRoundTripsThroughBsonAndJsonWithEveryField) {
    const std::vector<const RecordType*> types = TypeManager::instance().types();
    ASSERT_GE(types.size(), 45u);
    for (const RecordType* t : types) {
        SCOPED_TRACE(t->name);
        IDataPtr rec = t->create();
        ASSERT_TRUE(rec);
        EXPECT_EQ(rec->getTypeId(), t->typeId);
        fillAll(*rec, 0);
        if (HasFatalFailure()) return;

        const bson::BSONObj doc = rec->toBson();
        std::string err;
        IDataPtr back = TypeManager::instance().parse(doc, &err);
        ASSERT_TRUE(back) << err;
        EXPECT_TRUE(err.empty()) << err;
        EXPECT_STREQ(back->getClassName(), t->name);
        EXPECT_EQ(back->toBson(), doc) << doc.toJson() << "\n" << back->toBson().toJson();
        EXPECT_EQ(back->getKey(), rec->getKey());
        EXPECT_EQ(back->toString(), rec->toString());

        // JSON text of the same record parses back to the same document.
        IDataPtr fromJson = t->create();
        ASSERT_TRUE(fromJson->fromJson(rec->toJson(), &err)) << err;
        EXPECT_EQ(fromJson->toBson(), doc);

        // A clone is equal but independent.
        IDataPtr copy = rec->clone();
        EXPECT_EQ(copy->toBson(), doc);
    }
}

TEST(Records, FieldTablesMatchTheItemConstants) {
    // A table that disagrees with the ITEM_ numbers would make every generic read wrong.
    EXPECT_EQ(COrderDetail::staticType().fields.size(), size_t(COrderDetail::ITEM_END_));
    EXPECT_EQ(CFtAccountDetail::staticType().fields.size(), size_t(CFtAccountDetail::ITEM_END_));
    EXPECT_STREQ(COrderDetail::staticType().fields[COrderDetail::ITEM_m_strOrderSysID].name, "m_strOrderSysID");
    EXPECT_STREQ(CPositionDetail::staticType().fields[CPositionDetail::ITEM_m_nYesterdayVolume].name,
                 "m_nYesterdayVolume");
    EXPECT_STREQ(GoldQueryStorageResp::staticType().fields[GoldQueryStorageResp::ITEM_totalStorage].name,
                 "totalStorage");
    // A subclass's table starts with its base's, so base numbers stay valid on it.
    EXPECT_STREQ(CFtAccountDetail::staticType().fields[CAccountDetail::ITEM_m_dBalance].name, "m_dBalance");
    for (const RecordType* t : TypeManager::instance().types())
        for (size_t i = 0; i < t->fields.size(); ++i)
            EXPECT_EQ(t->fieldIndex(t->fields[i].name), int(i)) << t->name << " has a duplicate field name";
}

TEST(Records, KindIsBaseIdOrTypeId) {
    struct Case {
        IDataPtr rec;
        int kind;
        int baseId;
    } cases[] = {
        {boost::make_shared<COrderDetail>(), 542, -1},
        {boost::make_shared<CAccountDetail>(), 543, -1},
        {boost::make_shared<CFtAccountDetail>(), 543, 543},
        {boost::make_shared<CCreditAccountDetail>(), 543, 543},
        {boost::make_shared<CStkCompacts>(), 13902, -1},
        {boost::make_shared<GoldQueryStorageResp>(), 7227, -1},
        {boost::make_shared<CExchangeStatus>(), 570, -1},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.rec->getKind(), c.kind) << c.rec->getClassName();
        EXPECT_EQ(c.rec->getBaseId(), c.baseId) << c.rec->getClassName();
    }
    EXPECT_NE(CFtAccountDetail().getTypeId(), 543);
}

TEST(Records, GenericAccessByItemNumber) {
    COrderDetail o;
    o.m_strOrderSysID = "1001";
    o.m_nVolumeTotalOriginal = 300;
    o.m_dLimitPrice = 12.5;
    o.m_eOrderStatus = ENTRUST_STATUS_CANCELED;
    EXPECT_EQ(o.getString(COrderDetail::ITEM_m_strOrderSysID), "1001");
    EXPECT_EQ(o.getInt(COrderDetail::ITEM_m_nVolumeTotalOriginal), 300);
    EXPECT_DOUBLE_EQ(o.getDouble(COrderDetail::ITEM_m_dLimitPrice), 12.5);
    EXPECT_EQ(o.getInt(COrderDetail::ITEM_m_eOrderStatus), 54);
    int n = 0;
    std::string s;
    o.getData(COrderDetail::ITEM_m_nVolumeTotalOriginal, n);
    o.getData(COrderDetail::ITEM_m_strOrderSysID, s);
    EXPECT_EQ(n, 300);
    EXPECT_EQ(s, "1001");

    // Unknown numbers and other shapes read as 0 / "" and refuse writes.
    EXPECT_EQ(o.getInt(-1), 0);
    EXPECT_EQ(o.getInt(9999), 0);
    EXPECT_EQ(o.getString(COrderDetail::ITEM_m_nVolumeTotalOriginal), "");
    EXPECT_FALSE(o.setString(COrderDetail::ITEM_m_nVolumeTotalOriginal, "x"));
    EXPECT_EQ(o.m_nVolumeTotalOriginal, 300);

    // Record-valued fields accept only their class (or a subclass) and an empty pointer.
    CAccountInfoPtr info = boost::make_shared<CAccountInfo>();
    EXPECT_TRUE(o.setData(COrderDetail::ITEM_m_accountInfo, info));
    EXPECT_EQ(o.m_accountInfo, info);
    EXPECT_FALSE(o.setData(COrderDetail::ITEM_m_accountInfo, boost::make_shared<CDealDetail>()));
    EXPECT_EQ(o.m_accountInfo, info);
    EXPECT_EQ(o.getRecord(COrderDetail::ITEM_m_accountInfo), info);
    EXPECT_TRUE(o.setData(COrderDetail::ITEM_m_accountInfo, IDataPtr()));
    EXPECT_FALSE(o.m_accountInfo);

    // Numbers read as another shape convert without overflow: "no price" (the largest double)
    // and NaN in a double, a 64-bit count read as int, a double written into an int.
    CPriceData q;
    const int last = CPriceData::ITEM_m_dLastPrice, vol = CPriceData::ITEM_m_nVolume;
    struct Case {
        double price;
        int64_t volume;
        int priceAsInt;
        int64_t priceAsInt64;
        int volumeAsInt;
        bool priceAsBool;
    };
    const Case cases[] = {
        {TT_INVALID_DOUBLE, int64_t(1) << 40, INT32_MAX, INT64_MAX, INT32_MAX, true},
        {-TT_INVALID_DOUBLE, -(int64_t(1) << 40), INT32_MIN, INT64_MIN, INT32_MIN, true},
        {std::nan(""), 7, 0, 0, 7, true},
        {12.75, -3, 12, 12, -3, true},
        {0.5, 0, 0, 0, 0, true},  // non-zero, though it truncates to 0
        {0.0, 0, 0, 0, 0, false},
    };
    for (const Case& c : cases) {
        q.m_dLastPrice = c.price;
        q.m_nVolume = c.volume;
        EXPECT_EQ(q.getInt(last), c.priceAsInt) << c.price;
        EXPECT_EQ(q.getInt64(last), c.priceAsInt64) << c.price;
        EXPECT_EQ(q.getInt(vol), c.volumeAsInt) << c.volume;
        bool b = !c.priceAsBool;
        q.getData(last, b);
        EXPECT_EQ(b, c.priceAsBool) << c.price;
    }
    EXPECT_TRUE(o.setDouble(COrderDetail::ITEM_m_nVolumeTotalOriginal, 1e300));
    EXPECT_EQ(o.m_nVolumeTotalOriginal, INT32_MAX);
    EXPECT_TRUE(o.setDouble(COrderDetail::ITEM_m_eOrderStatus, 54.9));
    EXPECT_EQ(o.m_eOrderStatus, ENTRUST_STATUS_CANCELED);
}

TEST(Records, KeyRulesThatOtherModulesRelyOn) {
    CAccountInfo a;
    a.m_nPlatformID = 10001;
    a.m_strAccountID = "88001";
    EXPECT_EQ(a.getKey(), "10001_88001");
    a.m_strSubAccount = "s1";
    EXPECT_EQ(a.getKey(), "10001_88001_s1");
    EXPECT_EQ(genParentAccountKey(a), "10001_88001");

    // Stock-option items: third code, first code, then the second unless the first is 'D'.
    CStockOptionFeeItem item;
    item.m_nOffsetFlag = '0';
    item.m_nCoveredFlag = '1';
    item.m_nDirection = '1';
    EXPECT_EQ(item.getKey(), "101");
    item.m_nOffsetFlag = 'D';
    EXPECT_EQ(item.getKey(), "1D");

    CInstrumentDetail inst;
    inst.m_strExchangeID = "SHFE";
    inst.m_strInstrumentID = "cu2501";
    EXPECT_EQ(inst.getKey(), "SHFEcu2501");
}

TEST(Records, WrongFieldTypesStayAtDefaultsAndAreNamed) {
    bson::BSONObjBuilder b;
    b.append("_typeid", int32_t(542));
    b.append("m_strOrderSysID", "77");
    b.append("m_nVolumeTotalOriginal", "three hundred");  // wrong type
    b.append("m_dLimitPrice", int32_t(12));              // an integer is a valid double
    b.append("m_accountInfo", bson::BSONObj());          // a nested document without a type id
    b.append("m_unknownField", int32_t(5));               // ignored
    std::string err;
    IDataPtr rec = TypeManager::instance().parse(b.obj(), &err);
    COrderDetailPtr o = boost::dynamic_pointer_cast<COrderDetail>(rec);
    ASSERT_TRUE(o);
    EXPECT_EQ(o->m_strOrderSysID, "77");
    EXPECT_EQ(o->m_nVolumeTotalOriginal, 0);
    EXPECT_DOUBLE_EQ(o->m_dLimitPrice, 12.0);
    EXPECT_FALSE(o->m_accountInfo);
    EXPECT_NE(err.find("m_nVolumeTotalOriginal"), std::string::npos) << err;
    EXPECT_NE(err.find("m_accountInfo"), std::string::npos) << err;

    // A nested record of the wrong class is not attached.
    bson::BSONObjBuilder nested;
    nested.append("_typeid", int32_t(542));
    bson::BSONObjBuilder outer;
    outer.append("_typeid", int32_t(542));
    outer.append("m_accountInfo", nested.obj());
    IDataPtr rec2 = TypeManager::instance().parse(outer.obj(), &err);
    ASSERT_TRUE(rec2);
    EXPECT_FALSE(boost::dynamic_pointer_cast<COrderDetail>(rec2)->m_accountInfo);
}

TEST(Records, UnknownOrMissingTypeGivesEmptyPointerAndReason) {
    std::string err;
    EXPECT_FALSE(TypeManager::instance().parse(bson::BSONObj(), &err));
    EXPECT_FALSE(err.empty());
    bson::BSONObjBuilder b;
    b.append("_typeid", int32_t(123456));
    EXPECT_FALSE(TypeManager::instance().parse(b.obj(), &err));
    EXPECT_NE(err.find("123456"), std::string::npos);
    bson::BSONObjBuilder c;
    c.append("m_strOrderSysID", "1");
    EXPECT_FALSE(TypeManager::instance().parse(c.obj(), &err));
    bson::BSONObjBuilder d;
    d.append("_typeid", "542");
    EXPECT_FALSE(TypeManager::instance().parse(d.obj(), &err));

    // Without an error argument the reason goes to the standard log; an empty document is
    // absent, not an error, and says nothing.
    ttservice::test::LogCapture capture(utils::TT_LOG_WARN);
    bson::BSONObjBuilder e;
    e.append("_typeid", int32_t(123456));
    EXPECT_FALSE(TypeManager::instance().parse(e.obj()));
    EXPECT_FALSE(TypeManager::instance().parse(bson::BSONObj()));
    bson::BSONObjBuilder f;
    f.append("_typeid", int32_t(544)).append("m_nVolume", "ten");
    EXPECT_TRUE(TypeManager::instance().parse(f.obj()));
    const std::vector<std::string> lines = capture.texts(utils::LOGGER_STD);
    ASSERT_EQ(2u, lines.size());
    EXPECT_NE(lines[0].find("unknown type id 123456"), std::string::npos) << lines[0];
    EXPECT_NE(lines[1].find("CDealDetail.m_nVolume"), std::string::npos) << lines[1];
}

TEST(Records, MutatedDocumentsAreRejectedOrReadIntoWholeRecords) {
    // Real documents that between them use every field codec: nested records (an order with its
    // account info and tag), a record map and nested records (an instrument fee), record lists
    // holding string-list maps and lists (a custom fee table), a double map (exchange rates) and
    // a string list (a product).
    std::vector<IDataPtr> samples = {boost::make_shared<COrderDetail>(), boost::make_shared<CInstrumentFee>(),
                                     boost::make_shared<CCustomStockInstrumentFee>(),
                                     boost::make_shared<CExchangeRate>(), boost::make_shared<CProduct>()};
    std::mt19937 rng(20261123);
    for (const IDataPtr& sample : samples) {
        SCOPED_TRACE(sample->getClassName());
        fillAll(*sample, 1);
        if (HasFatalFailure()) return;
        const std::string good = sample->toBson().bytes();
        int accepted = 0, rejected = 0;
        // Every byte, four mutations each: a document either fails validation with a reason, or
        // is a document libbson accepts too and reads into a record that is whole: its own
        // document is valid and reads back to the very same record.
        for (size_t pos = 0; pos < good.size(); ++pos) {
            for (int k = 0; k < 4; ++k) {
                std::string bad = good;
                const char choices[] = {static_cast<char>(0xFF), '\0',
                                        static_cast<char>(bad[pos] ^ (1 << (rng() % 8))),
                                        static_cast<char>(rng())};
                bad[pos] = choices[k];
                if (bad == good) continue;
                std::string reason;
                const bson::BSONObj obj = bson::BSONObj::fromBytes(bad, &reason);
                if (obj.isEmpty()) {
                    EXPECT_FALSE(reason.empty()) << "byte " << pos;
                    ++rejected;
                    continue;
                }
                ++accepted;
                EXPECT_EQ(obj.bytes(), bad);
                bson_t view;
                ASSERT_TRUE(obj.view(&view));
                size_t errOffset = 0;
                EXPECT_TRUE(bson_validate(
                    &view,
                    static_cast<bson_validate_flags_t>(BSON_VALIDATE_UTF8 | BSON_VALIDATE_UTF8_ALLOW_NULL),
                    &errOffset))
                    << "accepted a document libbson refuses at " << errOffset << " (byte " << pos << ")";
                std::string error;
                IDataPtr rec = TypeManager::instance().parse(obj, &error);
                if (!rec) {
                    EXPECT_FALSE(error.empty()) << "byte " << pos;
                    continue;
                }
                const bson::BSONObj again = rec->toBson();
                std::string why;
                ASSERT_FALSE(bson::BSONObj::fromBytes(again.bytes(), &why).isEmpty())
                    << why << " (byte " << pos << ")";
                IDataPtr reread = TypeManager::instance().parse(again, &error);
                ASSERT_TRUE(reread) << error;
                EXPECT_TRUE(error.empty()) << error;
                EXPECT_EQ(reread->toBson(), again) << "byte " << pos;
                EXPECT_FALSE(rec->toString().empty());
            }
        }
        for (size_t len = 0; len < good.size(); len += 7) {
            std::string reason;
            EXPECT_TRUE(bson::BSONObj::fromBytes(good.substr(0, len), &reason).isEmpty());
            EXPECT_FALSE(reason.empty());
        }
        EXPECT_GT(rejected, 0);
        EXPECT_GT(accepted, 0);
    }
}

TEST(Records, JsonInputIsValidatedWithTheFieldNamed) {
    std::string err;
    IDataPtr rec = records::parseJsonValue(
        [] {
            Json::Value v;
            v["class"] = "CDealDetail";
            v["m_nVolume"] = "ten";
            return v;
        }(),
        &err);
    EXPECT_FALSE(rec);
    EXPECT_NE(err.find("m_nVolume"), std::string::npos) << err;

    Json::Value unknown;
    unknown["class"] = "CNoSuchRecord";
    EXPECT_FALSE(records::parseJsonValue(unknown, &err));
    EXPECT_NE(err.find("CNoSuchRecord"), std::string::npos);

    Json::Value extra;
    extra["class"] = "CDealDetail";
    extra["m_nVolumee"] = 10;
    EXPECT_FALSE(records::parseJsonValue(extra, &err));
    EXPECT_NE(err.find("m_nVolumee"), std::string::npos);
}

TEST(Records, LockHoldsTheRecordsOwnMutex) {
    IDataPtr rec = boost::make_shared<COrderDetail>();
    bool otherGotIt = true;
    {
        IData::Lock lock(rec);
        boost::thread t([&] {
            otherGotIt = rec->mutex().try_lock();
            if (otherGotIt) rec->mutex().unlock();
        });
        t.join();
        IData::Lock again(rec);  // recursive: the owner may re-enter
    }
    EXPECT_FALSE(otherGotIt);
    EXPECT_TRUE(rec->mutex().try_lock());
    rec->mutex().unlock();
}

TEST(Records, EnumItemNames) {
    TypeManager& tm = TypeManager::instance();
    EXPECT_EQ(tm.getEnumItemName("EEntrustStatus", 54), "ENTRUST_STATUS_CANCELED");
    EXPECT_EQ(tm.getEnumItemName("EOffset_Flag_Type", 68), "EOFF_THOST_FTDC_OF_Exercise");
    EXPECT_EQ(tm.getEnumItemName("EEntrustStatus", 1234), "1234");
    EXPECT_EQ(tm.getEnumItemName("ENoSuchEnum", 1), "1");
    int v = 0;
    EXPECT_TRUE(tm.getEnumItemValue("EPriceType", "PRTP_MARKET", v));
    EXPECT_EQ(v, 12);
}
