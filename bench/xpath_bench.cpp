// Path queries: iNode::query on a data tree against pugixml's XPath over the
// same tree as an XML document, in the same run.
//
// Shape: a root with 500 records (attributes id, kind, price), each holding 8
// fields (attribute name, a text value): 4,501 nodes. Both sides parse each
// expression once (our node caches it; the peer keeps a compiled query).
#include <benchmark/benchmark.h>

#include <chrono>
#include <pugixml.hpp>
#include <string>

#include "nvk/data/CBaseNode.h"
#include "nvk/platform/ReferenceSet.h"
#include "nvk/platform/Value.h"
#include "nvk/platform/XPath.h"

using namespace tovan;
using nvk::CBaseNode;

namespace {

constexpr int kRecords = 500;
constexpr int kFields = 8;

const char16_t* const kKinds[] = {u"a", u"b", u"c"};

struct Trees {
    Ptr<CBaseNode> root;
    pugi::xml_document doc;

    Trees() : root(CBaseNode::newInstance()) {
        root->setName(u"records");
        std::string xml;
        for (int r = 0; r < kRecords; ++r) {
            Ptr<CBaseNode> rec(CBaseNode::newInstance());
            rec->setName(u"record");
            std::u16string id = utf8ToUtf16(std::to_string(r));
            std::u16string price = utf8ToUtf16(std::to_string(r % 97) + ".5");
            rec->getProperties().define(u"id", WString(id));
            rec->getProperties().define(u"kind", WString(kKinds[r % 3]));
            rec->getProperties().define(u"price", WString(price));
            xml += "<record id='" + utf16ToUtf8(id) + "' kind='" + utf16ToUtf8(kKinds[r % 3]) + "' price='" +
                   utf16ToUtf8(price) + "'>";
            for (int f = 0; f < kFields; ++f) {
                Ptr<CBaseNode> field(CBaseNode::newInstance());
                field->setName(u"field");
                std::string name = "f" + std::to_string(f), value = "v" + std::to_string((r * kFields + f) % 101);
                field->getProperties().define(u"name", WString(utf8ToUtf16(name)));
                field->setValue(StringValue(WString(utf8ToUtf16(value))));
                rec->appendChild(field.get());
                xml += "<field name='" + name + "'>" + value + "</field>";
            }
            root->appendChild(rec.get());
            xml += "</record>";
        }
        doc.load_string(xml.c_str(), pugi::parse_default | pugi::parse_fragment);
    }
};

const char* const kExpressions[] = {
    "//record[@kind = 'b']/field[@name = 'f3']",
    "count(//field[. = 'v7'])",
    "/record[position() mod 10 = 0]/field[last()]",
    "//field[starts-with(., 'v1') and ../@price > 50]",
};

void reportRatio(benchmark::State& state, double ours, double peer) {
    state.counters["times_pugixml"] = ours / peer;
}

double timeOurs(Trees& trees, const std::u16string& expr, bool nodeSet, int64_t& count) {
    auto start = std::chrono::steady_clock::now();
    if (nodeSet) {
        NodeReferenceSet set;
        trees.root->query(expr, 0, set);
        count = set.getCount();
    } else {
        int n = 0;
        trees.root->query(expr, 0, n);
        count = n;
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double timePeer(Trees& trees, const pugi::xpath_query& q, bool nodeSet, int64_t& count) {
    auto start = std::chrono::steady_clock::now();
    if (nodeSet)
        count = int64_t(q.evaluate_node_set(trees.doc).size());
    else
        count = int64_t(q.evaluate_number(trees.doc));
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Each iteration runs our query and the peer's once; the time shown is ours,
// the counter the ratio of the two totals.
void BM_Query(benchmark::State& state) {
    Trees trees;
    const char* text = kExpressions[state.range(0)];
    const std::u16string expr = utf8ToUtf16(text);
    pugi::xpath_query peer(text);
    const bool nodeSet = peer.return_type() == pugi::xpath_type_node_set;
    double ours = 0, theirs = 0;
    int64_t ourCount = 0, peerCount = 0;
    for (auto _ : state) {
        ours += timeOurs(trees, expr, nodeSet, ourCount);
        state.PauseTiming();
        theirs += timePeer(trees, peer, nodeSet, peerCount);
        state.ResumeTiming();
    }
    if (ourCount != peerCount) state.SkipWithError("results differ from the peer's");
    state.SetLabel(text);
    state.counters["results"] = double(ourCount);
    reportRatio(state, ours, theirs);
}
BENCHMARK(BM_Query)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);

// Parsing alone: a fresh expression each time (no cache on either side).
void BM_Parse(benchmark::State& state) {
    const char* text = "//record[@kind = 'b' and position() > 3]/field[starts-with(@name, 'f') or . != 'v1'][last()]";
    const std::u16string expr = utf8ToUtf16(text);
    double ours = 0, theirs = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        XPathExpression parsed(expr);
        benchmark::DoNotOptimize(parsed.type());
        auto mid = std::chrono::steady_clock::now();
        state.PauseTiming();
        auto peerStart = std::chrono::steady_clock::now();
        pugi::xpath_query peer(text);
        benchmark::DoNotOptimize(peer.return_type());
        theirs += std::chrono::duration<double>(std::chrono::steady_clock::now() - peerStart).count();
        state.ResumeTiming();
        ours += std::chrono::duration<double>(mid - start).count();
    }
    reportRatio(state, ours, theirs);
}
BENCHMARK(BM_Parse)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
