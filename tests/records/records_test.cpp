// Record library: every class round-trips through BSON, TypeManager and JSON with every field
// intact; the kind rule; generic access by ITEM_ number; bad documents rejected cleanly.
#include "bson/BSONObj.h"
#include "records/RecordJson.h"
#include "records/Records.h"
#include "testing/LogCapture.h"
#include "testing/RecordBuilders.h"

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
        Json::Value doc(Json::objectValue);  // containers are set through JSON
        Json::Value& val = doc[f.name];
        bool set = false;
        switch (f.kind) {
        case EFieldKind::Int32:
        case EFieldKind::Enum: set = rec.setInt(i, v); break;
        case EFieldKind::Int64: set = rec.setInt(i, int64_t(v) * 10000000000LL); break;
        case EFieldKind::Double: set = rec.setDouble(i, v + 0.25); break;
        case EFieldKind::Bool: set = rec.setBool(i, !rec.getInt(i)); break;
        case EFieldKind::String: set = rec.setString(i, "s" + std::to_string(v) + "\xe4\xb8\xad"); break;
        case EFieldKind::StringList: val.append("a" + std::to_string(v)); val.append("b"); break;
        case EFieldKind::DoubleMap: val["USD"] = 7.1; val["HKD"] = 0.91 + v; break;
        case EFieldKind::StringListMap:
            val["10001"].append("600000");
            val["10001"].append("60000" + std::to_string(v % 10));
            break;
        case EFieldKind::Int64List: val.append(Json::Int64(v)); break;
        default:  // records and record containers: element classes are tried until one is accepted
            for (const RecordType* cand : TypeManager::instance().types()) {
                IDataPtr nested = cand->create();
                if (seed < 3) fillAll(*nested, seed + 1);
                if (f.kind == EFieldKind::Record) {
                    if ((set = rec.setData(i, nested))) break;
                    continue;
                }
                Json::Value elem;
                records::toJsonValue(*nested, elem);
                val = Json::Value();
                if (f.kind == EFieldKind::RecordList) {
                    val.append(elem);
                    val.append(elem);
                } else {
                    val["k" + std::to_string(v)] = elem;
                }
                if ((set = records::fromJsonValue(doc, rec, nullptr))) break;
            }
        }
        if (!set && !val.isNull()) set = records::fromJsonValue(doc, rec, nullptr);
        ASSERT_TRUE(set) << t.name << "." << f.name;
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
        EXPECT_EQ(back->toJson(), rec->toJson());  // a field that toBson drops shows here
        EXPECT_EQ(back->getKey(), rec->getKey());
        EXPECT_EQ(back->toString(), rec->toString());
        IDataPtr fromJson = t->create();
        ASSERT_TRUE(fromJson->fromJson(rec->toJson(), &err)) << err;
        EXPECT_EQ(fromJson->toBson(), doc);
        EXPECT_EQ(rec->clone()->toBson(), doc);
    }
}

// Field tables agree with the ITEM_ numbers (else every generic read is wrong); the kind rule.
TEST(Records, FieldTablesAndKinds) {
    EXPECT_EQ(COrderDetail::staticType().fields.size(), size_t(COrderDetail::ITEM_END_));
    EXPECT_EQ(CFtAccountDetail::staticType().fields.size(), size_t(CFtAccountDetail::ITEM_END_));
    EXPECT_STREQ(COrderDetail::staticType().fields[COrderDetail::ITEM_m_strOrderSysID].name,
                 "m_strOrderSysID");
    EXPECT_STREQ(CPositionDetail::staticType().fields[CPositionDetail::ITEM_m_nYesterdayVolume].name,
                 "m_nYesterdayVolume");
    EXPECT_STREQ(GoldQueryStorageResp::staticType().fields[GoldQueryStorageResp::ITEM_totalStorage].name,
                 "totalStorage");
    // A subclass's table starts with its base's, so base numbers stay valid on it.
    EXPECT_STREQ(CFtAccountDetail::staticType().fields[CAccountDetail::ITEM_m_dBalance].name, "m_dBalance");
    for (const RecordType* t : TypeManager::instance().types())
        for (size_t i = 0; i < t->fields.size(); ++i)
            EXPECT_EQ(t->fieldIndex(t->fields[i].name), int(i)) << t->name << " has a duplicate field name";

    // The kind is the base id, or the type id when the base id is -1.
    const struct {
        IDataPtr rec;
        int kind, baseId;
    } kinds[] = {
        {boost::make_shared<COrderDetail>(), 542, -1},
        {boost::make_shared<CAccountDetail>(), 543, -1},
        {boost::make_shared<CFtAccountDetail>(), 543, 543},
        {boost::make_shared<CCreditAccountDetail>(), 543, 543},
        {boost::make_shared<CStkCompacts>(), 13902, -1},
        {boost::make_shared<GoldQueryStorageResp>(), 7227, -1},
        {boost::make_shared<CExchangeStatus>(), 570, -1},
    };
    for (const auto& c : kinds) {
        EXPECT_EQ(c.rec->getKind(), c.kind) << c.rec->getClassName();
        EXPECT_EQ(c.rec->getBaseId(), c.baseId) << c.rec->getClassName();
    }
    EXPECT_NE(CFtAccountDetail().getTypeId(), 543);
}

TEST(Records, GenericAccessByItemNumber) {
    const COrderDetailPtr order =
        test::OrderBuilder().volume(300).price(12.5).status(ENTRUST_STATUS_CANCELED).build();
    COrderDetail& o = *order;
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
    CAccountInfoPtr info = test::makeAccountInfo();
    EXPECT_TRUE(o.setData(COrderDetail::ITEM_m_accountInfo, info));
    EXPECT_FALSE(o.setData(COrderDetail::ITEM_m_accountInfo, boost::make_shared<CDealDetail>()));
    EXPECT_EQ(o.m_accountInfo, info);
    EXPECT_EQ(o.getRecord(COrderDetail::ITEM_m_accountInfo), info);
    EXPECT_TRUE(o.setData(COrderDetail::ITEM_m_accountInfo, IDataPtr()));
    EXPECT_FALSE(o.m_accountInfo);

    // Numbers read as another shape convert without overflow: "no price" (the largest double)
    // and NaN in a double, a 64-bit count read as int, a double written into an int.
    CPriceData q;
    const int last = CPriceData::ITEM_m_dLastPrice, vol = CPriceData::ITEM_m_nVolume;
    const struct {
        double price;
        int64_t volume;
        int priceAsInt;
        int64_t priceAsInt64;
        int volumeAsInt;
        bool priceAsBool;
    } cases[] = {
        {TT_INVALID_DOUBLE, int64_t(1) << 40, INT32_MAX, INT64_MAX, INT32_MAX, true},
        {-TT_INVALID_DOUBLE, -(int64_t(1) << 40), INT32_MIN, INT64_MIN, INT32_MIN, true},
        {std::nan(""), 7, 0, 0, 7, true},
        {12.75, -3, 12, 12, -3, true},
        {0.5, 0, 0, 0, 0, true},  // non-zero, though it truncates to 0
        {0.0, 0, 0, 0, 0, false},
    };
    for (const auto& c : cases) {
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
    CAccountInfoPtr a = test::makeAccountInfo("88001", 1, 10001);
    EXPECT_EQ(a->getKey(), "10001_88001");
    a->m_strSubAccount = "s1";
    EXPECT_EQ(a->getKey(), "10001_88001_s1");
    EXPECT_EQ(genParentAccountKey(*a), "10001_88001");
    EXPECT_EQ(test::makeInstrument("SHFE", "cu2501")->getKey(), "SHFEcu2501");
    // Stock-option items: third code, first code, then the second unless the first is 'D'.
    CStockOptionFeeItem item;
    item.m_nOffsetFlag = '0';
    item.m_nCoveredFlag = '1';
    item.m_nDirection = '1';
    EXPECT_EQ(item.getKey(), "101");
    item.m_nOffsetFlag = 'D';
    EXPECT_EQ(item.getKey(), "1D");
}

// Bad input gives an empty pointer and a reason naming the type or field; mistyped fields stay at
// their defaults and are named.
TEST(Records, BadDocumentsAreRejectedWithTheReason) {
    TypeManager& tm = TypeManager::instance();
    std::string err;
    const struct {
        bson::BSONObj doc;
        const char* mentions;
    } rejected[] = {
        {bson::BSONObj(), "empty document"},
        {bson::BSONObjBuilder().append("_typeid", int32_t(123456)).obj(), "unknown type id 123456"},
        {bson::BSONObjBuilder().append("m_strOrderSysID", "1").obj(), "_typeid"},
        {bson::BSONObjBuilder().append("_typeid", "542").obj(), "_typeid"},
    };
    for (const auto& c : rejected) {
        EXPECT_FALSE(tm.parse(c.doc, &err)) << c.mentions;
        EXPECT_NE(err.find(c.mentions), std::string::npos) << err;
    }

    bson::BSONObjBuilder b;
    b.append("_typeid", int32_t(542));
    b.append("m_strOrderSysID", "77");
    b.append("m_nVolumeTotalOriginal", "three hundred");  // wrong type
    b.append("m_dLimitPrice", int32_t(12));              // an integer is a valid double
    b.append("m_accountInfo", bson::BSONObj());          // a nested document without a type id
    b.append("m_unknownField", int32_t(5));               // ignored
    COrderDetailPtr o = boost::dynamic_pointer_cast<COrderDetail>(tm.parse(b.obj(), &err));
    ASSERT_TRUE(o);
    EXPECT_EQ(o->m_strOrderSysID, "77");
    EXPECT_EQ(o->m_nVolumeTotalOriginal, 0);
    EXPECT_DOUBLE_EQ(o->m_dLimitPrice, 12.0);
    EXPECT_FALSE(o->m_accountInfo);
    EXPECT_NE(err.find("m_nVolumeTotalOriginal"), std::string::npos) << err;
    EXPECT_NE(err.find("m_accountInfo"), std::string::npos) << err;
    // A nested record of the wrong class is not attached.
    const bson::BSONObj order = bson::BSONObjBuilder().append("_typeid", int32_t(542)).obj();
    IDataPtr outer =
        tm.parse(bson::BSONObjBuilder().append("_typeid", int32_t(542)).append("m_accountInfo", order).obj());
    ASSERT_TRUE(outer);
    EXPECT_FALSE(boost::dynamic_pointer_cast<COrderDetail>(outer)->m_accountInfo);

    // JSON input: a mistyped or unknown field, an unknown class.
    const struct {
        const char* cls;
        const char* field;
        Json::Value value;
        const char* mentions;
    } json[] = {{"CDealDetail", "m_nVolume", "ten", "m_nVolume"},
                {"CDealDetail", "m_nVolumee", 10, "m_nVolumee"},
                {"CNoSuchRecord", "m_nVolume", 10, "CNoSuchRecord"}};
    for (const auto& c : json) {
        Json::Value v;
        v["class"] = c.cls;
        v[c.field] = c.value;
        EXPECT_FALSE(records::parseJsonValue(v, &err)) << c.mentions;
        EXPECT_NE(err.find(c.mentions), std::string::npos) << err;
    }

    // Without an error argument the reason goes to the standard log; an empty document is
    // absent, not an error, and says nothing.
    test::LogCapture capture(utils::TT_LOG_WARN);
    EXPECT_FALSE(tm.parse(rejected[1].doc));
    EXPECT_FALSE(tm.parse(bson::BSONObj()));
    EXPECT_TRUE(
        tm.parse(bson::BSONObjBuilder().append("_typeid", int32_t(544)).append("m_nVolume", "ten").obj()));
    const std::vector<std::string> lines = capture.texts(utils::LOGGER_STD);
    ASSERT_EQ(2u, lines.size());
    EXPECT_NE(lines[0].find("unknown type id 123456"), std::string::npos) << lines[0];
    EXPECT_NE(lines[1].find("CDealDetail.m_nVolume"), std::string::npos) << lines[1];
}

// Real documents, mutated byte by byte, are rejected with a reason or read into whole records.
TEST(Records, MutatedDocumentsAreRejectedOrReadIntoWholeRecords) {
    // Between them these use every field codec: nested records (order), a record map (instrument
    // fee), record lists of string-list maps and lists (custom fee), a double map, a string list.
    std::vector<IDataPtr> samples = {boost::make_shared<COrderDetail>(), boost::make_shared<CInstrumentFee>(),
                                     boost::make_shared<CCustomStockInstrumentFee>(),
                                     boost::make_shared<CExchangeRate>(), boost::make_shared<CProduct>()};
    std::mt19937 rng(20261123);
    const auto kUtf8 = static_cast<bson_validate_flags_t>(BSON_VALIDATE_UTF8 | BSON_VALIDATE_UTF8_ALLOW_NULL);
    for (const IDataPtr& sample : samples) {
        SCOPED_TRACE(sample->getClassName());
        fillAll(*sample, 1);
        if (HasFatalFailure()) return;
        const std::string good = sample->toBson().bytes();
        int accepted = 0, rejected = 0;
        // Four mutations of every byte. An accepted document must be one libbson accepts too, and
        // read into a record whose own document is valid and reads back to the very same record.
        for (size_t pos = 0; pos < good.size(); ++pos) {
            for (int k = 0; k < 4; ++k) {
                std::string bad = good;
                const char choices[] = {char(0xFF), '\0', char(bad[pos] ^ (1 << (rng() % 8))), char(rng())};
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
                EXPECT_TRUE(bson_validate(&view, kUtf8, &errOffset))
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

// The lock holds the record's own (recursive) mutex; enumeration names for log lines.
TEST(Records, LockAndEnumItemNames) {
    IDataPtr rec = boost::make_shared<COrderDetail>();
    bool otherGotIt = true;
    {
        IData::Lock lock(rec);
        boost::thread t([&] {
            otherGotIt = rec->mutex().try_lock();
            if (otherGotIt) rec->mutex().unlock();
        });
        t.join();
        IData::Lock again(rec);  // the owner may re-enter
    }
    EXPECT_FALSE(otherGotIt);
    EXPECT_TRUE(rec->mutex().try_lock());
    rec->mutex().unlock();

    TypeManager& tm = TypeManager::instance();
    EXPECT_EQ(tm.getEnumItemName("EEntrustStatus", 54), "ENTRUST_STATUS_CANCELED");
    EXPECT_EQ(tm.getEnumItemName("EOffset_Flag_Type", 68), "EOFF_THOST_FTDC_OF_Exercise");
    EXPECT_EQ(tm.getEnumItemName("EEntrustStatus", 1234), "1234");
    EXPECT_EQ(tm.getEnumItemName("ENoSuchEnum", 1), "1");
    int v = 0;
    EXPECT_TRUE(tm.getEnumItemValue("EPriceType", "PRTP_MARKET", v));
    EXPECT_EQ(v, 12);
}
