// First steps with nvk from C++: JSON records into data trees, a query over
// a tree, the trees to a node file and back, the same record by record for
// files of any size, and a protocol laid out.
// Usage: first_steps RECORDS.json PROTOCOL.json OUTDIR
//   e.g. first_steps examples/stations.json examples/clean-and-score.json /tmp
#include <iostream>
#include <string>
#include <vector>

#include <nvk/data/NodeStream.h>
#include <nvk/interchange/CJsonReader.h>
#include <nvk/interchange/NodeTreeText.h>
#include <nvk/platform/BitsetValue.h>
#include <nvk/platform/Exception.h>
#include <nvk/platform/FileInterface.h>
#include <nvk/platform/ReferenceSet.h>
#include <nvk/protocol/CProtocolFile.h>
#include <nvk/protocol/CProtocolLayoutUtils.h>

using tovan::Ptr;
using tovan::toNarrow;
using tovan::toWide;

namespace {

// Every top-level object of a JSON file becomes one data tree.
std::vector<Ptr<tovan::iNode>> readJsonRecords(const std::string& path) {
    tovan::vcFileInterface file(toWide(path), tovan::FileMode::Read);
    nvk::CJsonReader reader(&file);
    reader.ResetStream();
    std::vector<Ptr<tovan::iNode>> records;
    tovan::Array<Ptr<tovan::iNode>> nodes;
    while (reader.ReadNextObject(nodes)) {
        for (auto& node : nodes) records.push_back(std::move(node));
        nodes = {};
    }
    return records;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: first_steps RECORDS.json PROTOCOL.json OUTDIR\n";
        return 2;
    }
    const std::string outDir = argv[3];
    try {
        // 1. JSON records as data trees: nested objects are child nodes,
        //    members are typed properties.
        std::vector<Ptr<tovan::iNode>> records = readJsonRecords(argv[1]);
        if (records.empty()) {
            std::cerr << "first_steps: no records in " << argv[1] << "\n";
            return 1;
        }
        tovan::iNode& station = *records.front();
        std::cout << records.size() << " records; the first:\n" << nvk::DescribeNodeTree(station, 1);

        // 2. XPath over a tree: properties are attributes, child nodes elements.
        tovan::WString name, lastBy;
        int sensors = 0;
        tovan::NodeReferenceSet visits;
        station.query(u"string(@station)", tovan::QueryDefault, name);
        station.query(u"@sensors", tovan::QueryDefault, sensors);
        station.query(u"maintenance", tovan::QueryDefault, visits);
        station.query(u"string(maintenance[last()]/@by)", tovan::QueryDefault, lastBy);
        std::cout << toNarrow(name) << ": " << sensors << " sensors, " << visits.size()
                  << " maintenance visits, the last by " << toNarrow(lastBy) << "\n";

        // 3. The trees as a node file, and back.
        const tovan::WString nodeFile = toWide(outDir + "/first_steps.nvkb");
        nvk::writeNodeFile(nodeFile, records, tovan::DefaultStreamVersion);
        int version = 0;
        std::vector<Ptr<tovan::iNode>> back = nvk::readNodeFile(nodeFile, &version);
        bool same = back.size() == records.size();
        for (size_t i = 0; same && i < back.size(); ++i)
            same = nvk::DescribeNodeTree(*back[i]) == nvk::DescribeNodeTree(*records[i]);
        std::cout << "node file (stream version " << version << "): " << back.size() << " records read back"
                  << (same ? ", the same trees" : ", NOT the same trees") << "\n";
        if (!same) return 1;

        // 4. Record by record, for files of any size: each record is read,
        //    written and released before the next, so memory stays at what
        //    the largest record needs. The same works on standard input and
        //    output: vcFileInterface::openStream(stdin, ...) and
        //    NodeFileWriter(std::make_unique<tovan::FileOutputStream>(stdout, u"(standard output)")).
        {
            tovan::vcFileInterface in(toWide(argv[1]), tovan::FileMode::Read);
            nvk::CJsonReader reader(&in);
            reader.ResetStream();
            nvk::NodeFileWriter out(toWide(outDir + "/first_steps.streamed.nvkb"), tovan::DefaultStreamVersion);
            tovan::Array<Ptr<tovan::iNode>> nodes;
            while (reader.ReadNextObject(nodes)) {
                for (const auto& node : nodes) out.write(*node);
                nodes = {};  // the record is released here
            }
            out.finish();
            nvk::NodeFileReader back(toWide(outDir + "/first_steps.streamed.nvkb"));
            size_t count = 0;
            while (Ptr<tovan::iNode> record = back.next()) ++count;
            std::cout << "record by record: " << out.records() << " written, " << count << " read back\n";
        }

        // 5. A protocol laid out, and written back as JSON.
        Ptr<nvk::CProtocolInfo> protocol = nvk::CProtocolFile::Read(toWide(argv[2]));
        nvk::CProtocolLayoutUtils layout;
        tovan::BitsetValue changed;
        bool notesChanged = false;
        layout.LayoutProtocol(protocol.get(), u"", changed, notesChanged);
        std::cout << toNarrow(protocol->getName()) << ": " << layout.GetNumComponents() << " components in "
                  << layout.GetNumNetworks() << " networks\n";
        for (int i = 0; i < protocol->getNumComponents(); ++i) {
            tovan::iComponentInfo* component = protocol->getComponent(i);
            tovan::WString label;
            tovan::AttributePoint at;
            component->getTextAttribute(tovan::NVK_ComponentDisplayName, label);
            component->getPointAttribute(tovan::NVK_ComponentPoint, at);
            std::cout << "  " << toNarrow(label) << " at " << at.x << "," << at.y << "\n";
        }
        nvk::CProtocolFile::Write(protocol.get(), toWide(outDir + "/first_steps.laid-out.json"));
    } catch (const tovan::Exception& e) {
        // Every failure of the library is a tovan::Exception with its message.
        std::cerr << "first_steps: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
