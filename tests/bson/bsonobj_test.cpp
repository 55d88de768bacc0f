// The BSON face: building and reading documents, the empty-document rule, and validation of
// untrusted bytes.
#include "bson/BSONObj.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

using bson::BSONObj;
using bson::BSONObjBuilder;

namespace {

BSONObj sample() {
    return BSONObjBuilder()
        .append("i", int32_t(-5))
        .append("l", int64_t(1) << 40)
        .append("d", 2.5)
        .append("b", true)
        .append("s", std::string("\xe4\xb8\xad\xe6\x96\x87"))
        .append("o", BSONObjBuilder().append("inner", int32_t(7)).obj())
        .appendArray("strs", std::vector<std::string>{"x", "y"})
        .appendNull("n")
        .appendArray("objs", std::vector<BSONObj>{BSONObjBuilder().append("k", int32_t(1)).obj()})
        .obj();
}

}  // namespace

TEST(BSONObj, BuildAndReadEveryType) {
    BSONObj o = sample();
    EXPECT_FALSE(o.isEmpty());
    EXPECT_EQ(o.getIntField("i"), -5);
    EXPECT_EQ(o.getInt64Field("l"), int64_t(1) << 40);
    EXPECT_DOUBLE_EQ(o.getDoubleField("d"), 2.5);
    EXPECT_TRUE(o.getBoolField("b"));
    EXPECT_EQ(o.getStringField("s"), "\xe4\xb8\xad\xe6\x96\x87");
    EXPECT_EQ(o.getObjectField("o").getIntField("inner"), 7);
    std::vector<std::string> strs;
    EXPECT_TRUE(o.getStringArray("strs", strs));
    EXPECT_EQ(strs, (std::vector<std::string>{"x", "y"}));
    std::vector<BSONObj> objs;
    EXPECT_TRUE(o.getObjectArray("objs", objs));
    ASSERT_EQ(objs.size(), 1u);
    EXPECT_EQ(objs[0].getIntField("k"), 1);
    EXPECT_EQ(o.fieldNames().size(), 9u);

    // Absent or mistyped fields leave the output alone and report false.
    int32_t i = 42;
    std::string s = "keep";
    EXPECT_FALSE(o.getInt("s", i));
    EXPECT_FALSE(o.getString("i", s));
    EXPECT_FALSE(o.getInt("missing", i));
    EXPECT_EQ(i, 42);
    EXPECT_EQ(s, "keep");
    EXPECT_EQ(o.getIntField("missing", 9), 9);
    EXPECT_TRUE(o.getObjectField("missing").isEmpty());

    // JSON text for inspection.
    const std::string json =
        BSONObjBuilder().append("code", "600000").append("vol", int32_t(100)).obj().toJson();
    EXPECT_NE(json.find("\"code\" : \"600000\""), std::string::npos) << json;
    EXPECT_NE(json.find("\"vol\" : 100"), std::string::npos) << json;
}

TEST(BSONObj, NumericReadsConvertOnlyWhatFits) {
    const BSONObj o = BSONObjBuilder()
                          .append("big", int64_t(1) << 40)
                          .append("neg", int64_t(-5))
                          .append("real", -2.75)
                          .append("huge", 1e300)
                          .append("nan", std::nan(""))
                          .append("flag", true)
                          .obj();
    const struct {
        const char* field;
        bool int32Ok;
        int32_t int32;
        bool int64Ok;
        int64_t int64;
    } cases[] = {
        {"big", false, 0, true, int64_t(1) << 40},  // does not fit 32 bits: mistyped, not wrapped
        {"neg", true, -5, true, -5},
        {"real", true, -2, true, -2},  // truncated toward zero
        {"huge", false, 0, false, 0},  // beyond any integer
        {"nan", false, 0, false, 0},
        {"flag", true, 1, true, 1},
    };
    for (const auto& c : cases) {
        int32_t i = 77;
        int64_t l = 77;
        EXPECT_EQ(c.int32Ok, o.getInt(c.field, i)) << c.field;
        EXPECT_EQ(c.int32Ok ? c.int32 : 77, i) << c.field;
        EXPECT_EQ(c.int64Ok, o.getInt64(c.field, l)) << c.field;
        EXPECT_EQ(c.int64Ok ? c.int64 : 77, l) << c.field;
    }
    EXPECT_EQ(o.getIntField("big", -1), -1);
    EXPECT_DOUBLE_EQ(o.getDoubleField("big"), 1099511627776.0);
    double d = 0;
    EXPECT_FALSE(o.getDouble("flag", d));
}

TEST(BSONObj, EmptyDocumentRuleAndSharedBuffers) {
    EXPECT_EQ(BSONObj().objsize(), 5);
    EXPECT_TRUE(BSONObj().isEmpty());
    EXPECT_TRUE(BSONObjBuilder().obj().isEmpty());  // a built document with no field is 5 bytes too

    BSONObj o = sample();
    BSONObj copy = o;
    EXPECT_EQ(copy.objdata(), o.objdata());  // copies share the buffer
    BSONObj sub = o.getObjectField("o");
    o = BSONObj();  // the slice keeps the parent's buffer alive
    EXPECT_EQ(sub.getIntField("inner"), 7);

    // The builder starts over after obj().
    BSONObjBuilder b;
    const BSONObj first = b.append("a", int32_t(1)).obj();
    const BSONObj second = b.append("b", int32_t(2)).obj();
    EXPECT_TRUE(first.hasField("a"));
    EXPECT_FALSE(second.hasField("a"));
    EXPECT_TRUE(second.hasField("b"));
}

TEST(BSONObj, UntrustedBytesAreValidated) {
    const std::string good = sample().bytes();
    std::string reason;
    EXPECT_EQ(BSONObj::fromBytes(good, &reason), sample());
    EXPECT_TRUE(reason.empty());

    // `s` with byte `off` after the first `marker` set to `c`.
    auto patch = [](std::string s, const std::string& marker, size_t off, char c) {
        s[s.find(marker) + off] = c;
        return s;
    };
    // Documents built with libbson itself, which its own bson_validate() lets through.
    auto raw = [](void (*fill)(bson_t*)) {
        bson_t d;
        bson_init(&d);
        fill(&d);
        std::string out(reinterpret_cast<const char*>(bson_get_data(&d)), d.len);
        bson_destroy(&d);
        return out;
    };
    std::string badLen = good, noTerm = good;
    badLen[0] = static_cast<char>(badLen[0] + 1);
    noTerm.back() = 'x';
    BSONObj deep = BSONObjBuilder().append("leaf", int32_t(1)).obj();
    for (int i = 0; i < 70; ++i) deep = BSONObjBuilder().append("n", deep).obj();
    const struct {
        const char* what;
        std::string bytes;
    } cases[] = {
        {"too short", std::string("\x04\0\0\0", 4)},
        {"truncated", good.substr(0, good.size() / 2)},
        {"wrong length prefix", badLen},
        {"no terminating zero", noTerm},
        {"unknown element type", patch(good, std::string("\x10i\0", 3), 0, 0x20)},
        {"bad utf-8", patch(patch(good, "\xe4\xb8\xad", 0, char(0xC0)), "\xc0\xb8\xad", 1, 0x20)},
        {"string length past the end", patch(good, std::string("\x02s\0", 3), 3, 0x7f)},
        {"corrupt nested document", patch(good, std::string("\x03o\0", 3), 3, 0x02)},
        {"nested 71 levels deep", deep.bytes()},
        {"code with bad utf-8", raw([](bson_t* d) {
             bson_t scope;
             bson_init(&scope);
             bson_append_code_with_scope(d, "c", -1, "f(\xC0)", &scope);
             bson_destroy(&scope);
         })},
        {"bad utf-8 inside a code scope", raw([](bson_t* d) {
             bson_t scope;
             bson_init(&scope);
             bson_append_utf8(&scope, "v", -1, "\xFF", 1);
             bson_append_code_with_scope(d, "c", -1, "f()", &scope);
             bson_destroy(&scope);
         })},
        {"regular expression with bad utf-8",
         raw([](bson_t* d) { bson_append_regex(d, "r", -1, "^a\xC0", "i"); })},
    };
    for (const auto& c : cases) {
        reason.clear();
        EXPECT_TRUE(BSONObj::fromBytes(c.bytes, &reason).isEmpty()) << c.what;
        EXPECT_FALSE(reason.empty()) << c.what;
    }
    EXPECT_TRUE(BSONObj::fromBytes(nullptr, 10, &reason).isEmpty());

    // The reason names the field, by its path from the top.
    const BSONObj account = BSONObjBuilder().append("m_strAccountID", std::string("\xe4\xb8\xad")).obj();
    std::string named =
        BSONObjBuilder().append("m_nVolume", int32_t(1)).append("m_accountInfo", account).obj().bytes();
    named[named.find("\xe4\xb8\xad")] = static_cast<char>(0xFF);
    EXPECT_TRUE(BSONObj::fromBytes(named, &reason).isEmpty());
    EXPECT_NE(reason.find("'m_accountInfo.m_strAccountID'"), std::string::npos) << reason;
    // "d", the element after "l", given no valid type.
    EXPECT_TRUE(BSONObj::fromBytes(patch(good, std::string("\x01\x64\0", 3), 0, 0x20), &reason).isEmpty());
    EXPECT_NE(reason.find("after field 'l'"), std::string::npos) << reason;
}
