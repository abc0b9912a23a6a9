// Parameter link types, promotion stacks and series parameter names.
#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <string>
#include <tuple>

#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/Value.h"
#include "nvk/protocol/CParameterUtils.h"
#include "nvk/protocol/CPropertyUtils.h"
#include "nvk/protocol/CProtocolInfo.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using namespace tovan;
using nvktest::utf8;

namespace {

// The stack as stored, bottom first; an older single text as "single:" and the text.
std::vector<std::string> stackOf(const iPropertyCollection* md) {
    std::vector<std::string> out;
    const iProperty* e = md ? md->find(NVK_PromotedFromNew) : nullptr;
    if (!e) return out;
    if (auto* a = dynamic_cast<const StringArrayValue*>(&e->getValue())) {
        for (size_t i = 0; i < a->size(); ++i) out.push_back(utf8(a->get(i)));
    } else {
        out.push_back("single:" + utf8(e->getValue().toString()));
    }
    return out;
}

std::string top(const iProperty& p) {
    WString name = u"stale";
    return CPropertyUtils::topPromotedFrom(p, name) ? utf8(name) : "(none, name '" + utf8(name) + "')";
}

}  // namespace

TEST(ParameterUtils, LinkTypesBothWaysAndTheSingleParentTest) {
    const char16_t* texts[] = {u"LinkParentParameter", u"LinkGlobalProperty",     u"LinkDataProperty",
                               u"LinkAliasParameter",  u"LinkComponentParameter", u"LinkTextURL",
                               u"LinkExpression",      u"LinkSingleParentParameter"};
    for (int type = 1; type <= 8; ++type) {
        EXPECT_EQ(WString(CParameterUtils::getParamLinkTypeText(type)), WString(texts[type - 1]));
        std::u16string swapped(texts[type - 1]);  // every A-Z letter in the other case
        for (char16_t& c : swapped) c = (c >= u'A' && c <= u'Z') ? c + 32 : (c >= u'a' && c <= u'z' ? c - 32 : c);
        EXPECT_EQ(CParameterUtils::getParamLinkType(WString(swapped)), type) << utf8(WString(swapped));
    }
    for (const WString& text : {WString(), WString::empty(), WString(u"x"), WString(u"Lx"), WString(u"String"),
                                WString(u" LinkExpression"), WString(u"LinkExpressionX"),
                                WString(u"\u212ainkExpression")})  // Kelvin sign: no fold beyond A-Z
        EXPECT_EQ(CParameterUtils::getParamLinkType(text), ParamStringType) << utf8(text);
    for (int outside : {0, -1, 9}) EXPECT_EQ(WString(CParameterUtils::getParamLinkTypeText(outside)), WString(u"String"));

    // The single-parent test: the type text first (folding A-Z), then the setting.
    Ptr<CProtocolInfo> protocol(new CProtocolInfo(u"p"));
    iParameter& p = protocol->addComponent(1, u"A")->setParameter(u"x", ParameterValue::ofText(u"Parent"));
    p.setTypeText(u"LINKSINGLEPARENTPARAMETER");
    EXPECT_EQ(CParameterUtils::getParamLinkType(p), ParamLinkSingleParentParameter);
    EXPECT_FALSE(CParameterUtils::isInitializeUsingParentParameterType(p));  // no setting
    iProperty& setting = p.getMetaData().define(NVK_InitializeUsing, BooleanValue(true));
    EXPECT_TRUE(CParameterUtils::isInitializeUsingParentParameterType(p));
    setting.setValue(StringValue(u"TRUE"));
    EXPECT_TRUE(CParameterUtils::isInitializeUsingParentParameterType(p));
    setting.setValue(StringValue(u"yes"));
    EXPECT_FALSE(CParameterUtils::isInitializeUsingParentParameterType(p));
    setting.setValue(BooleanValue(true));
    for (const char16_t* other : {u"LinkParentParameter", u"LinkSingleParentParameter "}) {
        p.setTypeText(other);
        EXPECT_FALSE(CParameterUtils::isInitializeUsingParentParameterType(p)) << utf8(other);
    }
}

TEST(PropertyUtils, PromotionStackOnPropertiesAndParameters) {
    Ptr<CPropertyCollection> c(CPropertyCollection::newInstance());
    iProperty& prop = c->define(u"p", WString(u"v"));
    EXPECT_FALSE(CPropertyUtils::popPromotedFrom(prop));
    EXPECT_EQ(top(prop), "(none, name '')");
    EXPECT_EQ(prop.findMetaData(), nullptr);  // asking made no metadata

    prop.getMetaData().define(u"Units", WString(u"mm"));  // other metadata stays
    CPropertyUtils::pushPromotedFrom(prop, u"A");
    CPropertyUtils::pushPromotedFrom(prop, u"B");
    EXPECT_EQ(stackOf(prop.findMetaData()), (std::vector<std::string>{"A", "B"}));
    EXPECT_TRUE(CPropertyUtils::popPromotedFrom(prop));
    EXPECT_EQ(top(prop), "A");
    EXPECT_TRUE(CPropertyUtils::popPromotedFrom(prop));  // the last name takes the entry
    EXPECT_FALSE(CPropertyUtils::hasPromotedFrom(prop));
    EXPECT_EQ(prop.findMetaData()->getSize(), 1);

    // An older single text is a one-element stack; a push replaces it by an array.
    prop.getMetaData().define(NVK_PromotedFromNew, WString(u"Old"));
    EXPECT_EQ(top(prop), "Old");
    CPropertyUtils::pushPromotedFrom(prop, u"New");
    EXPECT_EQ(stackOf(prop.findMetaData()), (std::vector<std::string>{"New"}));
    prop.findMetaData()->get(NVK_PromotedFromNew).setValue(StringValue(u"Old"));
    EXPECT_TRUE(CPropertyUtils::popPromotedFrom(prop));
    EXPECT_FALSE(CPropertyUtils::hasPromotedFrom(prop));
    // An empty array exists but has no top; popping removes it.
    prop.getMetaData().define(NVK_PromotedFromNew, StringArrayValue{});
    EXPECT_TRUE(CPropertyUtils::hasPromotedFrom(prop));
    EXPECT_EQ(top(prop), "(none, name '')");
    EXPECT_TRUE(CPropertyUtils::popPromotedFrom(prop));
    EXPECT_FALSE(CPropertyUtils::hasPromotedFrom(prop));

    // Parameters keep the same stack; the top moves from one series index to another only
    // when it carries the old index.
    Ptr<CProtocolInfo> protocol(new CProtocolInfo(u"p"));
    iParameter& param = protocol->addComponent(1, u"A")->setParameter(u"x", ParameterValue::ofText(u""));
    CPropertyUtils::pushPromotedFrom(param, u"Item 3");
    CPropertyUtils::pushPromotedFrom(param, u"Item 4 extra");
    EXPECT_FALSE(CPropertyUtils::updatePromotionFromMetadata(param, 3, 9));
    EXPECT_TRUE(CPropertyUtils::updatePromotionFromMetadata(param, 4, 12));
    EXPECT_EQ(stackOf(param.findMetaData()), (std::vector<std::string>{"Item 3", "Item 12 extra"}));
    CPropertyUtils::pushPromotedFrom(param, u"NoNumber");
    EXPECT_FALSE(CPropertyUtils::updatePromotionFromMetadata(param, -1, 2));  // -1 is no index
    EXPECT_EQ(stackOf(param.findMetaData()), (std::vector<std::string>{"Item 3", "Item 12 extra", "NoNumber"}));
}

TEST(ParameterUtils, RenameSeriesParameterMovesStackAndRevertInfo) {
    Ptr<CProtocolInfo> protocol(new CProtocolInfo(u"p"));
    iComponentInfo* c = protocol->addComponent(1, u"A");
    c->setParameter(u"Item 1", ParameterValue::ofText(u"one"));
    iParameter& item = c->setParameter(u"Item 2", ParameterValue::ofText(u"two"));
    CPropertyUtils::pushPromotedFrom(item, u"Source");
    CPropertyUtils::pushPromotedFrom(item, u"Item 2");
    item.getMetaData().define(NVK_RevertName, WString(u"Item 2"));

    EXPECT_THROW_MSG(CParameterUtils::renameSeriesParameter(*c, u"Item 2", u"item 1"), Exception,
                     "Parameter 'item 1' already exists");
    EXPECT_EQ(c->getParameterNames(), (std::vector<WString>{u"Item 1", u"Item 2"}));
    EXPECT_EQ(stackOf(item.findMetaData()), (std::vector<std::string>{"Source", "Item 2"}));
    EXPECT_EQ(item.findMetaData()->get(NVK_RevertName).getValue().toString(), WString(u"Item 2"));

    CParameterUtils::renameSeriesParameter(*c, u"item 2", u"Item 3");
    EXPECT_EQ(c->getParameterNames(), (std::vector<WString>{u"Item 1", u"Item 3"}));
    EXPECT_EQ(c->findParameter(u"Item 3"), &item);
    EXPECT_EQ(stackOf(item.findMetaData()), (std::vector<std::string>{"Source", "Item 3"}));
    EXPECT_EQ(item.findMetaData()->get(NVK_RevertName).getValue().toString(), WString(u"Item 3"));

    // A parameter without revert info gets none; a non-series rename leaves the stack.
    iParameter& plain = c->setParameter(u"Plain", ParameterValue::ofText(u""));
    CPropertyUtils::pushPromotedFrom(plain, u"Plain 1");
    CParameterUtils::renameSeriesParameter(*c, u"Plain", u"Other 2");
    EXPECT_EQ(stackOf(plain.findMetaData()), (std::vector<std::string>{"Plain 1"}));
    EXPECT_EQ(plain.findMetaData()->find(NVK_RevertName), nullptr);
}

TEST(ParameterUtils, AncestorsUpTheGroupsAndHiddenParameters) {
    // outer: H holds group protocol mid; mid: G holds group protocol inner; inner: C.
    Ptr<CProtocolInfo> outer(new CProtocolInfo(u"outer"));
    Ptr<CProtocolInfo> mid(new CProtocolInfo(u"mid"));
    Ptr<CProtocolInfo> inner(new CProtocolInfo(u"inner"));
    iComponentInfo* h = outer->addComponent(1, u"H");
    iComponentInfo* g = mid->addComponent(1, u"G");
    iComponentInfo* c = inner->addComponent(1, u"C");
    h->setSubprotocol(mid.get());
    g->setSubprotocol(inner.get());
    h->setParameter(u"Root", ParameterValue::ofText(u"42"));
    g->setParameter(u"Mid", ParameterValue::ofText(u"root")).setTypeText(NVK_LinkParentParameterType);
    iParameter& leaf = c->setParameter(u"Leaf", ParameterValue::ofText(u"Mid"));
    leaf.setTypeText(NVK_LinkSingleParentParameterType);

    std::vector<WString> names{u"stale"};
    CParameterUtils::getAncestors(*c, leaf, names);
    EXPECT_EQ(names, (std::vector<WString>{u"Mid", u"Root"}));
    leaf.setValue(ParameterValue::ofText(u"Missing"));
    CParameterUtils::getAncestors(*c, leaf, names);
    EXPECT_TRUE(names.empty());
    leaf.setValue(ParameterValue::ofText(u"Mid"));
    leaf.setTypeText(NVK_LinkAliasParameterType);  // not a parent link
    CParameterUtils::getAncestors(*c, leaf, names);
    EXPECT_TRUE(names.empty());
    iParameter& up = h->setParameter(u"Up", ParameterValue::ofText(u"Root"));
    up.setTypeText(NVK_LinkParentParameterType);  // the top protocol has no group above
    CParameterUtils::getAncestors(*h, up, names);
    EXPECT_TRUE(names.empty());

    iParameter& made = CParameterUtils::setNevershowParameter(*c, u"Hidden", ParameterValue::ofInteger(3));
    EXPECT_EQ(c->findParameter(u"hidden"), &made);
    EXPECT_EQ(made.getValue(), ParameterValue::ofInteger(3));
    EXPECT_TRUE(made.findMetaData()->get(NVK_NeverShow).getValue().equals(BooleanValue(true)));
    EXPECT_EQ(&CParameterUtils::setNevershowParameter(*c, u"LEAF", ParameterValue::ofBoolean(true)), &leaf);
    EXPECT_EQ(leaf.getValue(), ParameterValue::ofBoolean(true));
    EXPECT_EQ(leaf.findMetaData(), nullptr);  // an existing one only gets the value
    EXPECT_THROW_MSG(CParameterUtils::setNevershowParameter(*c, u"", ParameterValue::ofText(u"")), BadParameterException,
                     "A parameter needs a name");
    EXPECT_EQ(c->getParameterNames().size(), 2u);
}

namespace {

// ok, prefix, index, suffix.
using Parsed = std::tuple<bool, std::string, int, std::string>;
const Parsed kNone{false, "", -1, ""};

bool space(char16_t c) { return c == u'\t' || c == u'\n' || c == u'\r' || c == u' ' || c == 0xA0; }
bool digit(char16_t c) { return c >= u'0' && c <= u'9'; }

// The rule read forwards. The index is the number right after the last whitespace that a
// digit follows, the prefix the text before that whitespace. Without one, a name that
// begins with digits and whitespace has them as index, and the prefix runs to that
// whitespace. The suffix is the rest after the number, trimmed.
Parsed plainParse(const std::u16string& s) {
    size_t at = std::u16string::npos, first = 0;
    for (size_t i = 0; i + 1 < s.size(); ++i)
        if (space(s[i]) && digit(s[i + 1])) at = i;
    if (at != std::u16string::npos) {
        first = at + 1;
    } else {
        at = 0;
        while (at < s.size() && digit(s[at])) ++at;
        if (at == 0 || at == s.size() || !space(s[at])) return kNone;
    }
    size_t end = first;
    while (end < s.size() && digit(s[end])) ++end;
    long long value = 0;
    for (size_t i = first; i < end; ++i)
        if ((value = value * 10 + (s[i] - u'0')) > INT_MAX) return kNone;
    size_t b = end, e = s.size();
    while (b < e && space(s[b])) ++b;
    while (e > b && space(s[e - 1])) --e;
    return {true, utf8(WString(s.substr(0, at))), int(value), utf8(WString(s.substr(b, e - b)))};
}

Parsed ours(const WString& name) {
    WString prefix = u"old", suffix = u"old";
    int index = 77;
    Parsed r{CPropertyUtils::parseSeriesParameterName(name, prefix, index, suffix), utf8(prefix), index, utf8(suffix)};
    if (!std::get<0>(r)) {
        // A null or empty name leaves the outputs alone; any other clears them.
        EXPECT_EQ(r, name.isEmpty() ? (Parsed{false, "old", 77, "old"}) : kNone) << utf8(name);
        r = kNone;
    }
    EXPECT_EQ(CPropertyUtils::getSeriesParameterIndex(name), std::get<2>(r));
    return r;
}

}  // namespace

TEST(PropertyUtils, SeriesNames) {
    EXPECT_EQ(ours(u"Item 7"), (Parsed{true, "Item", 7, ""}));
    EXPECT_EQ(ours(u"Item7"), kNone);
    EXPECT_EQ(ours(u"Item 7 extra"), (Parsed{true, "Item", 7, "extra"}));
    EXPECT_EQ(ours(u"Step 12 of 3"), (Parsed{true, "Step 12 of", 3, ""}));
    EXPECT_EQ(ours(u"Step 3b"), (Parsed{true, "Step", 3, "b"}));
    EXPECT_EQ(ours(u"7 x"), (Parsed{true, "7", 7, "x"}));  // whitespace after a leading number
    EXPECT_EQ(ours(u"Item \u0667"), kNone);                // Arabic-Indic seven is not an ASCII digit
    EXPECT_EQ(ours(u"Item 2147483647"), (Parsed{true, "Item", 2147483647, ""}));
    EXPECT_EQ(ours(WString()), kNone);

    WString made = u"stale";
    CPropertyUtils::createSeriesParameterName(u"Item", 7, WString::empty(), made);
    EXPECT_EQ(made, WString(u"Item 7"));
    EXPECT_EQ(CPropertyUtils::createSeriesParameterName(u"Item", -2, u"extra"), WString(u"Item -2 extra"));

    // Random names against the plain reading; what parses is made again by the maker with
    // the same index, unless its suffix holds a series number of its own.
    std::mt19937 rng(35);
    const std::u16string alphabet = u"aZq09 \t\n\r\u00a0\v\f";
    for (int round = 0; round < 20000; ++round) {
        std::u16string name;
        for (size_t i = 0, n = rng() % 14; i < n; ++i) name += alphabet[rng() % alphabet.size()];
        if (rng() % 50 == 0) name += u" 99999999999";
        const auto [ok, prefix, index, suffix] = plainParse(name);
        ASSERT_EQ(ours(WString(name)), plainParse(name)) << utf8(WString(name));
        if (ok && !std::get<0>(plainParse(tovan::toWide(suffix).str()))) {
            WString rebuilt = CPropertyUtils::createSeriesParameterName(tovan::toWide(prefix), index, tovan::toWide(suffix));
            EXPECT_EQ(CPropertyUtils::getSeriesParameterIndex(rebuilt), index) << utf8(rebuilt);
        }
    }
}
