// Collapse and uncollapse over the real workflow graphs of the shared corpus: random
// selections (single components, connected runs, whole branches). Every selection the check
// allows collapses into a valid protocol and uncollapses back to the same components,
// connections (up to the new local IDs) and execution order; every refusal leaves the
// protocol as it was.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "nvk/protocol/CProtocolCollapseUtils.h"
#include "nvk/protocol/CProtocolFile.h"
#include "tests/protocol/ProtocolTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using tovan::Ptr;
using tovan::WString;

namespace {

std::string valueText(const tovan::ParameterValue& v) {
    switch (v.kind) {
        case tovan::ParameterValue::Text: return "t:" + tovan::toNarrow(v.text);
        case tovan::ParameterValue::Integer: return "i:" + std::to_string(v.integer);
        case tovan::ParameterValue::Real: return "r:" + std::to_string(v.real);
        case tovan::ParameterValue::Boolean: return v.boolean ? "true" : "false";
        case tovan::ParameterValue::Array: {
            std::string s = "[";
            for (const auto& item : v.items) s += valueText(item) + ",";
            return s + "]";
        }
    }
    return "?";
}

/// One line per component and per connection, local IDs taken through `rename`, sorted; and
/// the components in execution order.
struct Shape {
    std::vector<std::string> components, connections;
    std::vector<int32_t> order;
    bool operator==(const Shape&) const = default;
};

Shape shapeOf(tovan::iProtocolInfo* p, const std::map<int32_t, int32_t>& rename) {
    auto id = [&](int32_t local) {
        auto it = rename.find(local);
        return it == rename.end() ? local : it->second;
    };
    Shape s;
    CProtocolUtils utils;
    utils.LoadProtocolComponents(p);
    for (int k = 0; k < utils.GetNumComponents(); ++k) {
        const tovan::iComponentInfo* c = utils.GetComponent(k);
        CProtocolUtils::Point at = utils.GetStoredPoint(k), off = utils.GetOffset(k);
        std::string line = std::to_string(id(utils.GetLocalID(k))) + "|" + tovan::toNarrow(utils.GetDisplayName(k)) + "|" +
                           std::to_string(utils.GetPorts(k)) + "|" + std::to_string(at.x) + "," + std::to_string(at.y) +
                           "|" + std::to_string(off.x) + "," + std::to_string(off.y);
        for (const WString& name : c->getParameterNames()) {
            const tovan::iParameter* q = c->findParameter(name);
            line += "|" + tovan::toNarrow(name) + "=" + tovan::toNarrow(q->getTypeText()) + ":" + valueText(q->getValue());
        }
        std::vector<WString> notes;
        if (c->getTextArrayAttribute(tovan::NVK_ComponentStickyNotes, notes))
            for (const WString& note : notes) line += "|" + tovan::toNarrow(note);
        if (const tovan::iProtocolInfo* sub = c->getSubprotocol()) line += "|" + tovan::toNarrow(CProtocolFile::WriteText(sub));
        s.components.push_back(line);
    }
    for (int k = 0; k < p->getNumConnections(); ++k) {
        tovan::ConnectionInfo c = p->getConnection(k);
        s.connections.push_back(std::to_string(id(c.fromLocalID)) + ">" + std::to_string(id(c.toLocalID)) + ":" +
                                std::to_string(int(c.port)));
    }
    std::sort(s.components.begin(), s.components.end());
    std::sort(s.connections.begin(), s.connections.end());
    std::vector<std::pair<int64_t, int32_t>> order;
    for (int k = 0; k < utils.GetNumComponents(); ++k)
        order.push_back({CProtocolUtils::getLocationMetric(utils.GetPoint(k)), id(utils.GetLocalID(k))});
    std::sort(order.begin(), order.end());
    for (const auto& o : order) s.order.push_back(o.second);
    return s;
}

/// A random selection from `u`: one component, a connected run, or a component and all it feeds.
std::vector<int> pickSelection(const CProtocolUtils& u, std::mt19937& rng) {
    const int n = u.GetNumComponents();
    const int start = int(rng() % unsigned(n));
    std::vector<int> picked{start};
    std::set<int> in{start};
    const unsigned kind = rng() % 3;
    if (kind == 0) return picked;
    const size_t limit = kind == 1 ? 2 + rng() % 7 : size_t(n);
    const int adjacency = kind == 1 ? CProtocolUtils::AdjAll : CProtocolUtils::AdjPassOrFail;
    for (size_t next = 0; next < picked.size() && picked.size() < limit; ++next) {
        std::vector<int> around = u.GetAdjacentList(picked[next], adjacency);
        if (kind == 1) std::shuffle(around.begin(), around.end(), rng);
        for (int a : around)
            if (picked.size() < limit && in.insert(a).second) picked.push_back(a);
    }
    return picked;
}

}  // namespace

TEST(ProtocolCollapseCorpus, RandomSelectionsCollapseAndComeBack) {
    auto files = nvktest::corpusProtocols();
    SKIP_WITHOUT_CORPUS(files.empty() ? std::filesystem::path() : files[0]);
    std::mt19937 rng(20261126);
    int allowed = 0, refused = 0;
    std::set<std::string> sentences;
    for (const auto& f : files) {
        SCOPED_TRACE(f.filename().string());
        const WString text = tovan::toWide(nvktest::readFile(f));
        Ptr<CProtocolInfo> original = CProtocolFile::ReadText(text, u"corpus.json");
        CProtocolUtils u;
        u.LoadProtocolComponents(original.get());
        const Shape before = shapeOf(original.get(), {});
        CProtocolCollapseUtils collapse;
        for (int round = 0; round < 40; ++round) {
            std::vector<int> picked = pickSelection(u, rng);
            std::vector<WString> ids;
            std::vector<int32_t> localIDs;
            std::sort(picked.begin(), picked.end());
            for (int k : picked) {
                localIDs.push_back(u.GetLocalID(k));
                ids.push_back(tovan::toWide(std::to_string(localIDs.back())));
            }
            std::shuffle(ids.begin(), ids.end(), rng);  // the order of the IDs does not matter
            WString message;
            if (!collapse.CanCollapseToSubprotocol(original.get(), ids, message)) {
                ++refused;
                // The sentence naming two components counts once, whichever they are.
                const std::string sentence = tovan::toNarrow(message);
                sentences.insert(sentence.rfind("Components \"", 0) == 0 ? "different" : sentence);
                EXPECT_THROW_MSG(collapse.CollapseToSubprotocol(nullptr, original.get(), ids, WString(), false),
                                 tovan::Exception, tovan::toNarrow(message));
                continue;
            }
            ++allowed;
            Ptr<CProtocolInfo> p = CProtocolFile::ReadText(text, u"corpus.json");
            tovan::iProtocolInfo* sub = collapse.CollapseToSubprotocol(nullptr, p.get(), ids, WString(u"Collapsed"), false);
            ASSERT_EQ(sub->getNumComponents(), int(picked.size()));
            ASSERT_EQ(p->getNumComponents(), u.GetNumComponents() - int(picked.size()) + 1);
            // The result is a valid protocol file, subprotocol and all.
            Ptr<CProtocolInfo> reread = CProtocolFile::ReadText(CProtocolFile::WriteText(p.get()), u"collapsed.json");
            ASSERT_EQ(CProtocolFile::WriteText(reread.get()), CProtocolFile::WriteText(p.get()));

            tovan::iComponentInfo* group = sub->getParentComponent();
            ASSERT_TRUE(collapse.CanUncollapseSubprotocol(group, message)) << tovan::toNarrow(message);
            std::vector<int32_t> newIDs;
            collapse.UncollapseSubprotocol(group, p.get(), newIDs);
            ASSERT_EQ(newIDs.size(), localIDs.size());
            std::map<int32_t, int32_t> back;
            for (size_t k = 0; k < newIDs.size(); ++k) back[newIDs[k]] = localIDs[k];
            const Shape after = shapeOf(p.get(), back);
            ASSERT_EQ(after.components, before.components);
            ASSERT_EQ(after.connections, before.connections);
            ASSERT_EQ(after.order, before.order);
        }
        // Refusals and checks never touched the protocol they were given.
        EXPECT_EQ(shapeOf(original.get(), {}), before);
        EXPECT_EQ(CProtocolFile::WriteText(original.get()), CProtocolFile::WriteText(CProtocolFile::ReadText(text, u"c").get()));
    }
    // The random selections reach both outcomes and every collapse rule.
    EXPECT_GT(allowed, 1000);
    EXPECT_GT(refused, 300);
    EXPECT_EQ(sentences.size(), 5u);
}

TEST(ProtocolCollapseCorpus, SubprotocolsOfTheCorpusUncollapseOrStayAsTheyWereWithTheReason) {
    auto files = nvktest::corpusProtocols();
    SKIP_WITHOUT_CORPUS(files.empty() ? std::filesystem::path() : files[0]);
    int expanded = 0, kept = 0;
    std::set<std::string> reasons;
    for (const auto& f : files) {
        SCOPED_TRACE(f.filename().string());
        Ptr<CProtocolInfo> p = CProtocolFile::Read(tovan::toWide(f.string()));
        CProtocolCollapseUtils collapse;
        for (int k = p->getNumComponents() - 1; k >= 0; --k) {
            tovan::iComponentInfo* c = p->getComponent(k);
            if (!c->getSubprotocol()) continue;
            const int inside = c->getSubprotocol()->getNumComponents(), before = p->getNumComponents();
            WString message;
            const WString text = CProtocolFile::WriteText(p.get());
            std::vector<int32_t> newIDs;
            if (!collapse.CanUncollapseSubprotocol(c, message)) {
                ++kept;
                // The uncollapse names its own reason for the two input cases it meets first.
                std::string expected = tovan::toNarrow(message);
                if (expected == "More than one start node with open input port")
                    expected = "Cannot uncollapse with more than one input component";
                bool fed = false;
                for (int n = 0; n < p->getNumConnections(); ++n)
                    fed = fed || p->getConnection(n).toLocalID == CProtocolUtils::GetComponentLocalID(c);
                if (expected == "Found no start nodes with input ports, but protocol has an input port" && fed)
                    expected = "Found upstream components from subprotocol, but it did not contain any input nodes";
                reasons.insert(expected);
                EXPECT_THROW_MSG(collapse.UncollapseSubprotocol(c, p.get(), newIDs), tovan::Exception, expected);
                EXPECT_EQ(CProtocolFile::WriteText(p.get()), text);
                continue;
            }
            ++expanded;
            collapse.UncollapseSubprotocol(c, p.get(), newIDs);
            EXPECT_EQ(p->getNumComponents(), before - 1 + inside);
            CProtocolFile::ReadText(CProtocolFile::WriteText(p.get()), u"expanded.json");
        }
    }
    // The corpus groups take input, but their steps are fed by inner input components that
    // have no input port, as the workflows' own files hold them: none of them can open up.
    EXPECT_GT(expanded + kept, 30);
    EXPECT_EQ(reasons, (std::set<std::string>{"Found upstream components from subprotocol, but it did not contain any input nodes"}));
}
