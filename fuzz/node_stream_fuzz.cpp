// Reads byte-stream records from arbitrary bytes. The first byte picks the
// stream version (1 to 3) and the record kind; the rest is the record. A
// record that reads must write back and read again to the same bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "nvk/data/CBaseNode.h"
#include "nvk/data/CMetaData.h"
#include "nvk/data/CObjectTransportNode.h"
#include "nvk/data/CPropertyCollection.h"
#include "nvk/data/NodeStream.h"
#include "nvk/data/StreamPrimitives.h"
#include "nvk/platform/Exception.h"

namespace {

template <class T>
void roundTrip(T& object, int version) {
    tovan::MemoryOutputStream once(version);
    object.serialize(once);
    tovan::Ptr<T> again(T::newInstance());
    tovan::MemoryInputStream in(once.bytes(), version);
    again->deserialize(in);
    tovan::MemoryOutputStream twice(version);
    again->serialize(twice);
    if (once.bytes() != twice.bytes() || in.remaining() != 0) std::abort();
}

template <class T>
void readOne(tovan::MemoryInputStream& in, int version) {
    tovan::Ptr<T> object(T::newInstance());
    try {
        object->deserialize(in);
    } catch (const tovan::Exception&) {
        return;
    }
    roundTrip(*object, version);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const int version = 1 + data[0] % 3;
    const int kind = (data[0] / 3) % 6;
    tovan::MemoryInputStream in(data + 1, size - 1, version);
    switch (kind) {
        case 0: readOne<nvk::CBaseNode>(in, version); break;
        case 1: readOne<nvk::CObjectTransportNode>(in, version); break;
        case 2: readOne<nvk::CPropertyCollection>(in, version); break;
        case 3: readOne<nvk::CProperty>(in, version); break;
        case 4: {
            tovan::iMetaData* meta = nullptr;
            try {
                nvk::CMetaDataImpl::SetFromSerialized(meta, in);
            } catch (const tovan::Exception&) {
            }
            if (meta) meta->release();
            break;
        }
        default: {
            std::vector<tovan::Ptr<tovan::iNode>> nodes;
            try {
                while (tovan::Ptr<tovan::iNode> n = nvk::readRecord(in)) nodes.push_back(n);
            } catch (const tovan::Exception&) {
            }
            tovan::MemoryOutputStream out(version);
            nvk::writeRecords(out, nodes);
            break;
        }
    }
    return 0;
}
