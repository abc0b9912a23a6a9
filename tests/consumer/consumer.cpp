// Uses the installed headers and library only: reads a JSON record into a
// data tree, queries it, and checks what it got. Exit status 0 when all holds.
#include <iostream>
#include <string>

#include <nvk/data/CBaseNode.h>
#include <nvk/interchange/CJsonReader.h>
#include <nvk/interchange/NodeTreeText.h>
#include <nvk/platform/Exception.h>
#include <nvk/platform/FileInterface.h>
#include <nvk/platform/Version.h>

namespace {

int failures = 0;

void expect(bool ok, const std::string& what) {
    if (!ok) {
        std::cerr << "consumer: " << what << "\n";
        ++failures;
    }
}

}  // namespace

int main() {
    tovan::vcFileInterface text;
    text.openText(u"{\"station\": \"north-7\", \"sensors\": 4, \"location\": {\"lat\": 46.5}}", u"record");
    nvk::CJsonReader reader(&text);
    reader.ResetStream();
    tovan::Array<tovan::Ptr<tovan::iNode>> nodes;
    expect(reader.ReadNextObject(nodes) && nodes.size() == 1, "one record expected");
    if (failures) return 1;
    tovan::iNode& record = *nodes[0];
    std::cout << "nvk " << tovan::libraryVersion() << "\n" << nvk::DescribeNodeTree(record);

    tovan::WString station;
    int sensors = 0;
    expect(record.query(u"string(@station)", tovan::QueryDefault, station) && tovan::toNarrow(station) == "north-7",
           "@station should be north-7");
    expect(record.query(u"@sensors + count(location)", tovan::QueryDefault, sensors) && sensors == 5,
           "@sensors + count(location) should be 5");

    // Errors cross the library boundary as the library's exception class.
    tovan::vcFileInterface broken;
    broken.openText(u"{\"a\": }", u"broken");
    nvk::CJsonReader brokenReader(&broken);
    brokenReader.ResetStream();
    try {
        brokenReader.ReadNextObject(nodes);
        expect(false, "a broken record should raise");
    } catch (const tovan::Exception& e) {
        std::cout << "refused: " << e.what() << "\n";
    }
    return failures ? 1 : 0;
}
