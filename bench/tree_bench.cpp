// Data trees: building, walking, looking properties up by name and cloning,
// against two JSON DOMs holding the same shape (RapidJSON and nlohmann-json)
// in the same run, plus the memory a node costs.
//
// Shape: a root with 1000 children of 999 children each (1,000,001 nodes);
// every node has 5 properties: id (integer), x (double), name (string),
// flag (boolean), count (integer). The DOM peers hold each node as an object
// with those 5 members plus a "children" array.
#include <benchmark/benchmark.h>

#include <malloc.h>

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <rapidjson/document.h>

#include "nvk/data/CBaseNode.h"
#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/Value.h"

using namespace tovan;
using nvk::CBaseNode;

namespace {

constexpr int kGroups = 1000;
constexpr int kLeavesPerGroup = 999;
constexpr int64_t kNodes = 1 + kGroups + int64_t(kGroups) * kLeavesPerGroup;

// ---- ours -----------------------------------------------------------------------------

void fillNode(iNode& n, int id) {
    iPropertyCollection& p = n.getProperties();
    p.define(u"id", IntegerValue(id));
    p.define(u"x", DoubleValue(id * 0.5));
    p.define(u"name", StringValue(u"node"));
    p.define(u"flag", BooleanValue(id % 2 == 0));
    p.define(u"count", IntegerValue(id % 7));
}

Ptr<CBaseNode> buildOurs() {
    Ptr<CBaseNode> root(CBaseNode::newInstance());
    root->setName(u"root");
    fillNode(*root, 0);
    int id = 1;
    for (int g = 0; g < kGroups; ++g) {
        Ptr<CBaseNode> group(CBaseNode::newInstance());
        group->setName(u"group");
        fillNode(*group, id++);
        for (int l = 0; l < kLeavesPerGroup; ++l) {
            Ptr<CBaseNode> leaf(CBaseNode::newInstance());
            leaf->setName(u"leaf");
            fillNode(*leaf, id++);
            group->appendChild(leaf.get());
        }
        root->appendChild(group.get());
    }
    return root;
}

int64_t walkOurs(const iNode& n) {
    int64_t sum = 0;
    if (const iPropertyCollection* p = n.getProperties())
        for (int i = 0, size = p->getSize(); i < size; ++i)
            if (const Value& v = p->get(i).getValue(); v.getTypeCode() == VT_Integer)
                sum += static_cast<const IntegerValue&>(v).get();
    for (int i = 0, count = n.getNumberOfChildren(); i < count; ++i) sum += walkOurs(*n.getChildAt(i));
    return sum;
}

// ---- RapidJSON ---------------------------------------------------------------------------

void fillRapid(rapidjson::Value& o, int id, rapidjson::Document::AllocatorType& a) {
    o.AddMember("id", id, a);
    o.AddMember("x", id * 0.5, a);
    o.AddMember("name", "node", a);
    o.AddMember("flag", id % 2 == 0, a);
    o.AddMember("count", id % 7, a);
}

std::unique_ptr<rapidjson::Document> buildRapid() {
    auto doc = std::make_unique<rapidjson::Document>();
    auto& a = doc->GetAllocator();
    doc->SetObject();
    fillRapid(*doc, 0, a);
    rapidjson::Value groups(rapidjson::kArrayType);
    int id = 1;
    for (int g = 0; g < kGroups; ++g) {
        rapidjson::Value group(rapidjson::kObjectType);
        fillRapid(group, id++, a);
        rapidjson::Value leaves(rapidjson::kArrayType);
        for (int l = 0; l < kLeavesPerGroup; ++l) {
            rapidjson::Value leaf(rapidjson::kObjectType);
            fillRapid(leaf, id++, a);
            leaves.PushBack(leaf, a);
        }
        group.AddMember("children", leaves, a);
        groups.PushBack(group, a);
    }
    doc->AddMember("children", groups, a);
    return doc;
}

int64_t walkRapid(const rapidjson::Value& o) {
    int64_t sum = 0;
    for (auto& m : o.GetObject()) {
        if (m.value.IsInt()) sum += m.value.GetInt();
        else if (m.value.IsArray())
            for (auto& c : m.value.GetArray()) sum += walkRapid(c);
    }
    return sum;
}

// ---- nlohmann-json ----------------------------------------------------------------------

void fillNlohmann(nlohmann::json& o, int id) {
    o["id"] = id;
    o["x"] = id * 0.5;
    o["name"] = "node";
    o["flag"] = id % 2 == 0;
    o["count"] = id % 7;
}

std::unique_ptr<nlohmann::json> buildNlohmann() {
    auto root = std::make_unique<nlohmann::json>(nlohmann::json::object());
    fillNlohmann(*root, 0);
    nlohmann::json groups = nlohmann::json::array();
    int id = 1;
    for (int g = 0; g < kGroups; ++g) {
        nlohmann::json group = nlohmann::json::object();
        fillNlohmann(group, id++);
        nlohmann::json leaves = nlohmann::json::array();
        for (int l = 0; l < kLeavesPerGroup; ++l) {
            nlohmann::json leaf = nlohmann::json::object();
            fillNlohmann(leaf, id++);
            leaves.push_back(std::move(leaf));
        }
        group["children"] = std::move(leaves);
        groups.push_back(std::move(group));
    }
    (*root)["children"] = std::move(groups);
    return root;
}

int64_t walkNlohmann(const nlohmann::json& o) {
    int64_t sum = 0;
    for (auto& [key, value] : o.items()) {
        if (value.is_number_integer()) sum += value.get<int64_t>();
        else if (value.is_array())
            for (auto& c : value) sum += walkNlohmann(c);
    }
    return sum;
}

// ---- helpers ---------------------------------------------------------------------------------

template <class F>
double seconds(F f) {
    auto start = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// The trees the walk and clone benchmarks share, built once.
struct Trees {
    Ptr<CBaseNode> ours = buildOurs();
    std::unique_ptr<rapidjson::Document> rapid = buildRapid();
    std::unique_ptr<nlohmann::json> nlohmann = buildNlohmann();
};

Trees& trees() {
    static Trees* t = new Trees;  // kept for the whole run
    return *t;
}

// Ratios are peer time / our time: above 1 means ours is faster.
void BM_Build(benchmark::State& state) {
    double ours = 0;
    int runs = 0;
    for (auto _ : state) {
        ours += seconds([] { benchmark::DoNotOptimize(buildOurs()); });
        ++runs;
    }
    ours /= runs;
    state.SetItemsProcessed(state.iterations() * kNodes);
    state.counters["ratio_vs_rapidjson"] = seconds([] { benchmark::DoNotOptimize(buildRapid()); }) / ours;
    state.counters["ratio_vs_nlohmann"] = seconds([] { benchmark::DoNotOptimize(buildNlohmann()); }) / ours;
}

void BM_Walk(benchmark::State& state) {
    Trees& t = trees();
    double ours = 0;
    int runs = 0;
    for (auto _ : state) {
        ours += seconds([&] { benchmark::DoNotOptimize(walkOurs(*t.ours)); });
        ++runs;
    }
    ours /= runs;
    if (walkOurs(*t.ours) != walkRapid(*t.rapid) || walkOurs(*t.ours) != walkNlohmann(*t.nlohmann))
        state.SkipWithError("the three trees do not hold the same values");
    state.SetItemsProcessed(state.iterations() * kNodes);
    state.counters["ratio_vs_rapidjson"] = seconds([&] { benchmark::DoNotOptimize(walkRapid(*t.rapid)); }) / ours;
    state.counters["ratio_vs_nlohmann"] = seconds([&] { benchmark::DoNotOptimize(walkNlohmann(*t.nlohmann)); }) / ours;
}

void BM_Clone(benchmark::State& state) {
    Trees& t = trees();
    double ours = 0;
    int runs = 0;
    for (auto _ : state) {
        ours += seconds([&] { benchmark::DoNotOptimize(t.ours->cloneNode(true)); });
        ++runs;
    }
    ours /= runs;
    state.SetItemsProcessed(state.iterations() * kNodes);
    state.counters["ratio_vs_rapidjson"] = seconds([&] {
                                               rapidjson::Document copy;
                                               copy.CopyFrom(*t.rapid, copy.GetAllocator());
                                               benchmark::DoNotOptimize(copy);
                                           }) /
                                           ours;
    state.counters["ratio_vs_nlohmann"] = seconds([&] {
                                              nlohmann::json copy = *t.nlohmann;
                                              benchmark::DoNotOptimize(copy);
                                          }) /
                                          ours;
}

/// Looks up random names among `state.range(0)` properties: 5 and below are
/// scanned, 50 and 500 go through the hash index.
void BM_FindProperty(benchmark::State& state) {
    const int size = int(state.range(0));
    constexpr int kLookups = 1 << 16;
    std::vector<WString> names;
    std::vector<std::string> narrow;
    for (int i = 0; i < size; ++i) {
        narrow.push_back("property_" + std::to_string(i));
        names.push_back(toWide(narrow.back()));
    }
    std::mt19937 rng(42);
    std::vector<int> order(kLookups);
    for (int& o : order) o = int(rng() % unsigned(size));

    Ptr<nvk::CPropertyCollection> ours(nvk::CPropertyCollection::newInstance());
    rapidjson::Document rapid;
    rapid.SetObject();
    nlohmann::json nl = nlohmann::json::object();
    for (int i = 0; i < size; ++i) {
        ours->define(names[size_t(i)], IntegerValue(i));
        rapidjson::Value key(narrow[size_t(i)].c_str(), rapid.GetAllocator());
        rapidjson::Value value(i);
        rapid.AddMember(key, value, rapid.GetAllocator());
        nl[narrow[size_t(i)]] = i;
    }
    auto lookOurs = [&] {
        int64_t sum = 0;
        for (int o : order) sum += ours->findIndex(names[size_t(o)]);
        return sum;
    };
    auto lookRapid = [&] {
        int64_t sum = 0;
        for (int o : order) sum += rapid.FindMember(narrow[size_t(o)].c_str())->value.GetInt();
        return sum;
    };
    auto lookNlohmann = [&] {
        int64_t sum = 0;
        for (int o : order) sum += nl.find(narrow[size_t(o)])->get<int>();
        return sum;
    };
    if (lookOurs() != lookRapid() || lookOurs() != lookNlohmann())
        state.SkipWithError("the three collections disagree");
    double oursTime = 0;
    int runs = 0;
    for (auto _ : state) {
        oursTime += seconds([&] { benchmark::DoNotOptimize(lookOurs()); });
        ++runs;
    }
    oursTime /= runs;
    state.SetItemsProcessed(state.iterations() * kLookups);
    state.counters["ratio_vs_rapidjson"] = seconds([&] { benchmark::DoNotOptimize(lookRapid()); }) / oursTime;
    state.counters["ratio_vs_nlohmann"] = seconds([&] { benchmark::DoNotOptimize(lookNlohmann()); }) / oursTime;
}

/// Heap bytes per node, measured over 100,000 fresh nodes (the pools are
/// emptied first so nothing is recycled). Peers: a RapidJSON object and an
/// nlohmann object with the same 5 integer members.
void BM_MemoryPerNode(benchmark::State& state) {
    constexpr int kCount = 100000;
    auto heapInUse = [] { return double(mallinfo2().uordblks); };
    for (auto _ : state) {
        CBaseNode::pool().purge();
        nvk::CPropertyCollection::pool().purge();
        nvk::CProperty::pool().purge();

        std::vector<Ptr<CBaseNode>> nodes;
        nodes.reserve(kCount);
        double before = heapInUse();
        for (int i = 0; i < kCount; ++i) nodes.emplace_back(CBaseNode::newInstance());
        state.counters["bytes_bare_node"] = (heapInUse() - before) / kCount;
        before = heapInUse();
        for (int i = 0; i < kCount; ++i) {
            iPropertyCollection& p = nodes[size_t(i)]->getProperties();
            for (const char16_t* name : {u"a", u"b", u"c", u"d", u"e"}) p.define(name, IntegerValue(i));
        }
        state.counters["bytes_node_with_5_int_properties"] =
            state.counters["bytes_bare_node"] + (heapInUse() - before) / kCount;

        before = heapInUse();
        {
            rapidjson::Document doc;
            doc.SetArray();
            for (int i = 0; i < kCount; ++i) {
                rapidjson::Value o(rapidjson::kObjectType);
                for (const char* name : {"a", "b", "c", "d", "e"})
                    o.AddMember(rapidjson::StringRef(name), i, doc.GetAllocator());
                doc.PushBack(o, doc.GetAllocator());
            }
            state.counters["rapidjson_bytes_object_with_5_ints"] = (heapInUse() - before) / kCount;
        }
        before = heapInUse();
        {
            std::vector<nlohmann::json> objects(kCount);
            for (int i = 0; i < kCount; ++i)
                for (const char* name : {"a", "b", "c", "d", "e"}) objects[size_t(i)][name] = i;
            state.counters["nlohmann_bytes_object_with_5_ints"] = (heapInUse() - before) / kCount;
        }
    }
}

}  // namespace

BENCHMARK(BM_Build)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_Walk)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_Clone)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_FindProperty)->Arg(5)->Arg(50)->Arg(500)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_MemoryPerNode)->Iterations(1);
BENCHMARK_MAIN();
