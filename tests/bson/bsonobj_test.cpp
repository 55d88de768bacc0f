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
    BSONObjBuilder sub;
    sub.append("inner", int32_t(7));
    BSONObjBuilder b;
    b.append("i", int32_t(-5))
        .append("l", int64_t(1) << 40)
        .append("d", 2.5)
        .append("b", true)
        .append("s", std::string("\xe4\xb8\xad\xe6\x96\x87"))
        .append("o", sub.obj())
        .appendArray("strs", std::vector<std::string>{"x", "y"})
        .appendNull("n");
    std::vector<BSONObj> objs;
    BSONObjBuilder e1;
    e1.append("k", int32_t(1));
    objs.push_back(e1.obj());
    b.appendArray("objs", objs);
    return b.obj();
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
}

TEST(BSONObj, NumericReadsConvertOnlyWhatFits) {
    BSONObjBuilder b;
    b.append("big", int64_t(1) << 40)
        .append("neg", int64_t(-5))
        .append("real", -2.75)
        .append("huge", 1e300)
        .append("nan", std::nan(""))
        .append("flag", true);
    const BSONObj o = b.obj();
    struct Case {
        const char* field;
        bool int32Ok;
        int32_t int32;
        bool int64Ok;
        int64_t int64;
    };
    const Case cases[] = {
        {"big", false, 0, true, int64_t(1) << 40},  // does not fit 32 bits: mistyped, not wrapped
        {"neg", true, -5, true, -5},
        {"real", true, -2, true, -2},  // truncated toward zero
        {"huge", false, 0, false, 0},  // beyond any integer
        {"nan", false, 0, false, 0},
        {"flag", true, 1, true, 1},
    };
    for (const Case& c : cases) {
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
    BSONObj empty;
    EXPECT_EQ(empty.objsize(), 5);
    EXPECT_TRUE(empty.isEmpty());
    BSONObjBuilder b;
    EXPECT_TRUE(b.obj().isEmpty());  // a built document with no field is 5 bytes too

    BSONObj o = sample();
    BSONObj copy = o;
    EXPECT_EQ(copy.objdata(), o.objdata());  // copies share the buffer
    BSONObj sub = o.getObjectField("o");
    o = BSONObj();                            // the slice keeps the parent's buffer alive
    EXPECT_EQ(sub.getIntField("inner"), 7);

    // The builder starts over after obj().
    BSONObjBuilder b2;
    b2.append("a", int32_t(1));
    BSONObj first = b2.obj();
    b2.append("b", int32_t(2));
    BSONObj second = b2.obj();
    EXPECT_TRUE(first.hasField("a"));
    EXPECT_FALSE(second.hasField("a"));
    EXPECT_TRUE(second.hasField("b"));
}

TEST(BSONObj, UntrustedBytesAreValidated) {
    const std::string good = sample().bytes();
    std::string reason;
    EXPECT_EQ(BSONObj::fromBytes(good, &reason), sample());
    EXPECT_TRUE(reason.empty());

    struct Case {
        const char* what;
        std::string bytes;
    };
    std::string badLen = good;
    badLen[0] = static_cast<char>(badLen[0] + 1);
    std::string noTerm = good;
    noTerm.back() = 'x';
    // Invalid UTF-8 inside the string field: bson_validate alone lets this through.
    std::string badUtf8 = good;
    size_t at = badUtf8.find("\xe4\xb8\xad");
    badUtf8[at] = static_cast<char>(0xC0);
    badUtf8[at + 1] = static_cast<char>(0x20);
    // A string whose length prefix runs past the document.
    std::string badStrLen = good;
    size_t sField = badStrLen.find(std::string("\x02s\0", 3));
    badStrLen[sField + 3] = 0x7f;
    // A nested document whose own length is corrupt.
    std::string badNested = good;
    size_t oField = badNested.find(std::string("\x03o\0", 3));
    badNested[oField + 3] = 0x02;
    // An unknown element type in the middle of the document.
    std::string badType = good;
    badType[badType.find(std::string("\x10i\0", 3))] = 0x20;
    // Texts that libbson's own bson_validate() lets through: code with scope and a regular
    // expression, each with invalid UTF-8, and a string that is bad inside a code scope.
    auto raw = [](void (*fill)(bson_t*)) {
        bson_t d;
        bson_init(&d);
        fill(&d);
        std::string out(reinterpret_cast<const char*>(bson_get_data(&d)), d.len);
        bson_destroy(&d);
        return out;
    };
    const std::string badCode = raw([](bson_t* d) {
        bson_t scope;
        bson_init(&scope);
        bson_append_code_with_scope(d, "c", -1, "f(\xC0)", &scope);
        bson_destroy(&scope);
    });
    const std::string badScope = raw([](bson_t* d) {
        bson_t scope;
        bson_init(&scope);
        bson_append_utf8(&scope, "v", -1, "\xFF", 1);
        bson_append_code_with_scope(d, "c", -1, "f()", &scope);
        bson_destroy(&scope);
    });
    const std::string badRegex = raw([](bson_t* d) { bson_append_regex(d, "r", -1, "^a\xC0", "i"); });
    // Nesting deeper than any record needs.
    BSONObj deepObj = BSONObjBuilder().append("leaf", int32_t(1)).obj();
    for (int i = 0; i < 70; ++i) {
        BSONObjBuilder outer;
        outer.append("n", deepObj);
        deepObj = outer.obj();
    }
    const std::string deep = deepObj.bytes();
    Case cases[] = {
        {"too short", std::string("\x04\0\0\0", 4)},
        {"unknown element type", badType},
        {"code with bad utf-8", badCode},
        {"bad utf-8 inside a code scope", badScope},
        {"regular expression with bad utf-8", badRegex},
        {"nested 71 levels deep", deep},
        {"wrong length prefix", badLen},
        {"no terminating zero", noTerm},
        {"bad utf-8", badUtf8},
        {"string length past the end", badStrLen},
        {"corrupt nested document", badNested},
        {"truncated", good.substr(0, good.size() / 2)},
    };
    for (const Case& c : cases) {
        reason.clear();
        BSONObj o = BSONObj::fromBytes(c.bytes, &reason);
        EXPECT_TRUE(o.isEmpty()) << c.what;
        EXPECT_FALSE(reason.empty()) << c.what;
    }
    EXPECT_TRUE(BSONObj::fromBytes(nullptr, 10, &reason).isEmpty());

    // The reason names the field, by its path from the top.
    BSONObjBuilder inner;
    inner.append("m_strAccountID", std::string("\xe4\xb8\xad"));
    BSONObjBuilder outer;
    outer.append("m_nVolume", int32_t(1)).append("m_accountInfo", inner.obj());
    std::string named = outer.obj().bytes();
    named[named.find("\xe4\xb8\xad")] = static_cast<char>(0xFF);
    EXPECT_TRUE(BSONObj::fromBytes(named, &reason).isEmpty());
    EXPECT_NE(reason.find("'m_accountInfo.m_strAccountID'"), std::string::npos) << reason;
    std::string cut = good;
    cut[cut.find(std::string("\x01\x64\0", 3))] = 0x20;  // "d", the element after "l": no valid type
    EXPECT_TRUE(BSONObj::fromBytes(cut, &reason).isEmpty());
    EXPECT_NE(reason.find("after field 'l'"), std::string::npos) << reason;
}

TEST(BSONObj, JsonForInspection) {
    BSONObjBuilder b;
    b.append("code", "600000").append("vol", int32_t(100));
    const std::string json = b.obj().toJson();
    EXPECT_NE(json.find("\"code\" : \"600000\""), std::string::npos) << json;
    EXPECT_NE(json.find("\"vol\" : 100"), std::string::npos) << json;
}
