// Byte-stream records of data trees against msgpack-cxx on the same data.
//
// The trees are built from the benchmark JSON documents with nlohmann-json and
// a small walker below (objects become nodes with properties, nested objects
// child nodes, arrays of numbers or strings array values, other arrays child
// nodes, an array element that is a plain array a node with that array as its
// "value"). The library's JSON converter is not used on purpose: it folds
// canada's coordinate lists into one array value of arrays, while this walker
// keeps one node per list, so the records measured here are the node-heavy kind
// where per-node cost shows. msgpack packs the same document from the same
// parsed JSON and unpacks it into its object tree. Throughput is per byte of
// the JSON document, so both sides are measured against the same amount of
// data; "wire_vs_msgpack" is our record size divided by msgpack's.

#include <benchmark/benchmark.h>

#include <fstream>
#include <map>
#include <msgpack.hpp>
#include <nlohmann/json.hpp>
#include <sstream>

#include "nvk/data/CBaseNode.h"
#include "nvk/data/NodeStream.h"
#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/ByteStream.h"

namespace {

using nlohmann::json;
using tovan::Ptr;
using tovan::WString;

WString wide(const std::string& s) { return WString(tovan::utf8ToUtf16(s)); }

Ptr<tovan::Value> scalarValue(const json& j) {
    if (j.is_string()) return Ptr<tovan::Value>(new tovan::StringValue(wide(j.get<std::string>())));
    if (j.is_boolean()) return Ptr<tovan::Value>(new tovan::BooleanValue(j.get<bool>()));
    if (j.is_number_integer()) {
        auto v = j.get<int64_t>();
        if (v >= INT32_MIN && v <= INT32_MAX) return Ptr<tovan::Value>(new tovan::IntegerValue(int32_t(v)));
        return Ptr<tovan::Value>(new tovan::DoubleValue(double(v)));
    }
    if (j.is_number()) return Ptr<tovan::Value>(new tovan::DoubleValue(j.get<double>()));
    return Ptr<tovan::Value>(new tovan::NullValue());
}

/// An array value when every element is a number or every one a string.
Ptr<tovan::Value> arrayValue(const json& a) {
    bool numbers = true, integers = true, strings = true;
    for (const json& e : a) {
        numbers = numbers && e.is_number();
        integers = integers && e.is_number_integer() && e.get<int64_t>() >= INT32_MIN && e.get<int64_t>() <= INT32_MAX;
        strings = strings && e.is_string();
    }
    if (a.empty() || !(numbers || strings)) return nullptr;
    if (strings) {
        Ptr<tovan::StringArrayValue> v(new tovan::StringArrayValue());
        for (const json& e : a) v->append(wide(e.get<std::string>()));
        return v;
    }
    if (integers) {
        Ptr<tovan::IntegerArrayValue> v(new tovan::IntegerArrayValue());
        for (const json& e : a) v->append(int32_t(e.get<int64_t>()));
        return v;
    }
    Ptr<tovan::DoubleArrayValue> v(new tovan::DoubleArrayValue());
    for (const json& e : a) v->append(e.get<double>());
    return v;
}

void fill(tovan::iNode& node, const json& j);

Ptr<tovan::iNode> makeNode(const std::string& name, const json& j) {
    Ptr<tovan::iNode> n(nvk::CBaseNode::newInstance());
    n->setName(wide(name));
    fill(*n, j);
    return n;
}

void fill(tovan::iNode& node, const json& j) {
    if (j.is_object()) {
        for (auto it = j.begin(); it != j.end(); ++it) {
            const json& v = it.value();
            if (v.is_object()) {
                node.appendChild(makeNode(it.key(), v).get());
            } else if (v.is_array()) {
                if (Ptr<tovan::Value> a = arrayValue(v))
                    node.getProperties().define(wide(it.key()), *a);
                else
                    node.appendChild(makeNode(it.key(), v).get());
            } else {
                node.getProperties().define(wide(it.key()), *scalarValue(v));
            }
        }
    } else if (j.is_array()) {
        if (Ptr<tovan::Value> a = arrayValue(j)) {  // an element that is itself a plain array
            node.getProperties().define(u"value", *a);
            return;
        }
        for (const json& e : j) node.appendChild(makeNode("item", e).get());
    } else {
        node.setValue(*scalarValue(j));
    }
}

template <class Packer>
void packJson(Packer& pk, const json& j) {
    switch (j.type()) {
        case json::value_t::object:
            pk.pack_map(uint32_t(j.size()));
            for (auto it = j.begin(); it != j.end(); ++it) {
                pk.pack(it.key());
                packJson(pk, it.value());
            }
            break;
        case json::value_t::array:
            pk.pack_array(uint32_t(j.size()));
            for (const json& e : j) packJson(pk, e);
            break;
        case json::value_t::string: pk.pack(j.get_ref<const std::string&>()); break;
        case json::value_t::boolean: pk.pack(j.get<bool>()); break;
        case json::value_t::number_integer: pk.pack(j.get<int64_t>()); break;
        case json::value_t::number_unsigned: pk.pack(j.get<uint64_t>()); break;
        case json::value_t::number_float: pk.pack(j.get<double>()); break;
        default: pk.pack_nil(); break;
    }
}

struct Document {
    size_t jsonBytes = 0;
    Ptr<tovan::iNode> tree;
    std::vector<uint8_t> record;
    msgpack::sbuffer packed;
};

const Document* document(const std::string& name) {
    static std::map<std::string, Document> cache;
    auto found = cache.find(name);
    if (found != cache.end()) return &found->second;
    std::ifstream f(std::string(NVK_CORPUS_DIR) + "/json/bench/" + name + ".json", std::ios::binary);
    if (!f) return nullptr;
    std::stringstream text;
    text << f.rdbuf();
    json j = json::parse(text.str());
    Document& d = cache[name];
    d.jsonBytes = text.str().size();
    d.tree = makeNode(name, j);
    tovan::MemoryOutputStream out(2);
    nvk::writeRecord(out, *d.tree);
    d.record = out.takeBytes();
    msgpack::packer<msgpack::sbuffer> pk(d.packed);
    packJson(pk, j);
    return &d;
}

void setCounters(benchmark::State& state, const Document& d) {
    state.SetBytesProcessed(int64_t(state.iterations() * d.jsonBytes));
    state.counters["wire_bytes"] = double(d.record.size());
    state.counters["msgpack_bytes"] = double(d.packed.size());
    state.counters["wire_vs_msgpack"] = double(d.record.size()) / double(d.packed.size());
}

#define NEED_DOCUMENT(d, name)                                        \
    const Document* d = document(name);                               \
    if (!d) {                                                         \
        state.SkipWithError("shared corpus not found");               \
        return;                                                       \
    }

void BM_NodeWrite(benchmark::State& state, const char* name) {
    NEED_DOCUMENT(d, name);
    tovan::MemoryOutputStream out(2);
    for (auto _ : state) {
        out.clear();
        nvk::writeRecord(out, *d->tree);
        benchmark::DoNotOptimize(out.bytes().data());
    }
    setCounters(state, *d);
}

void BM_NodeRead(benchmark::State& state, const char* name) {
    NEED_DOCUMENT(d, name);
    for (auto _ : state) {
        tovan::MemoryViewInputStream in(d->record.data(), d->record.size(), 2);
        Ptr<tovan::iNode> n = nvk::readRecord(in);
        benchmark::DoNotOptimize(n.get());
    }
    setCounters(state, *d);
}

void BM_MsgpackPack(benchmark::State& state, const char* name) {
    NEED_DOCUMENT(d, name);
    // Packing walks the parsed JSON, as writing walks the node tree.
    std::ifstream f(std::string(NVK_CORPUS_DIR) + "/json/bench/" + name + ".json", std::ios::binary);
    json j = json::parse(f);
    msgpack::sbuffer buf;
    for (auto _ : state) {
        buf.clear();
        msgpack::packer<msgpack::sbuffer> pk(buf);
        packJson(pk, j);
        benchmark::DoNotOptimize(buf.data());
    }
    setCounters(state, *d);
}

void BM_MsgpackUnpack(benchmark::State& state, const char* name) {
    NEED_DOCUMENT(d, name);
    for (auto _ : state) {
        msgpack::object_handle oh = msgpack::unpack(d->packed.data(), d->packed.size());
        benchmark::DoNotOptimize(oh.get().type);
    }
    setCounters(state, *d);
}

}  // namespace

#define FOR_DOCS(bm)                                    \
    BENCHMARK_CAPTURE(bm, canada, "canada");            \
    BENCHMARK_CAPTURE(bm, citm_catalog, "citm_catalog"); \
    BENCHMARK_CAPTURE(bm, twitter, "twitter");

FOR_DOCS(BM_NodeWrite)
FOR_DOCS(BM_MsgpackPack)
FOR_DOCS(BM_NodeRead)
FOR_DOCS(BM_MsgpackUnpack)

BENCHMARK_MAIN();
