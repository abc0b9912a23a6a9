// nvk wsdl: the text and JSON reports of the bundled example, bundles, and failures.
#include "tests/support/TestSupport.h"

using nvktest::runTool;

TEST(WsdlCommand, ReportsTheExampleAndItsBundleAlike) {
    nvktest::ToolRun text = runTool("wsdl examples/wsdl/stations.wsdl");
    EXPECT_EQ(text.status, 0);
    EXPECT_NE(text.out.find("    operation Record\n      soapAction: http://examples.nvk/stations/Record\n"
                            "      encoding: http://schemas.xmlsoap.org/soap/encoding/\n      input: st:RecordRequest\n"
                            "        part station: type xsd:string\n        part values: type st:Readings\n"),
              std::string::npos)
        << text.out;
    EXPECT_NE(text.out.find("  t:Kind (simple, {examples.nvk/stations/types})\n    base: xsd:string\n    maxLength: 16\n"
                            "    enumeration: river lake\n"),
              std::string::npos)
        << text.out;
    EXPECT_NE(text.out.find("warning: ignoring port StationsSoapBackup with shared binding st:StationsSoap\n"), std::string::npos);

    nvktest::TempDir dir;
    const std::string zip = (dir / "stations.zip").string();
    EXPECT_TOOL("wsdl bundle examples/wsdl/stations.wsdl -o " + zip, 0, "");
    nvktest::ToolRun json = runTool("wsdl examples/wsdl/stations.wsdl --json");
    EXPECT_EQ(json.status, 0);
    EXPECT_EQ(json.out.rfind("{\"targetNamespace\":\"http://examples.nvk/stations\",\"services\":[{\"name\":\"Stations\","
                             "\"ports\":[{\"name\":\"StationsSoap\",\"binding\":\"st:StationsSoap\",",
                             0),
              0u)
        << json.out;
    EXPECT_NE(json.out.find("\"operations\":[{\"name\":\"GetStation\",\"soapAction\":\"http://examples.nvk/stations/GetStation\","
                            "\"encoding\":\"\",\"input\":{\"message\":\"st:GetStationRequest\",\"parts\":[{\"name\":\"parameters\","
                            "\"element\":\"st:GetStation\",\"type\":null}]},\"output\":{\"message\":\"st:GetStationResponse\","),
              std::string::npos)
        << json.out;
    EXPECT_NE(json.out.find("\"t:Kind\":{\"namespace\":\"examples.nvk/stations/types\",\"kind\":\"simple\",\"members\":[],"
                            "\"arrayType\":null,\"base\":\"xsd:string\",\"facets\":{\"maxLength\":\"16\"},"
                            "\"enumerations\":[\"river\",\"lake\"]}"),
              std::string::npos)
        << json.out;
    EXPECT_NE(json.out.find("\"warnings\":[\"ignoring port StationsSoapBackup with shared binding st:StationsSoap\"]}"),
              std::string::npos);
    EXPECT_EQ(runTool("wsdl " + zip + " --json").out, json.out);
    EXPECT_EQ(runTool("wsdl --json " + zip).out, json.out);
}

TEST(WsdlCommand, FailuresAndUsage) {
    nvktest::TempDir dir;
    const std::string missing = (dir / "none.wsdl").string();
    EXPECT_TOOL("wsdl " + missing, 1, "nvk wsdl: " + missing + ": Unable to open file \"" + missing + "\": No such file or directory\n");
    EXPECT_TOOL("wsdl examples/wsdl", 1, "nvk wsdl: examples/wsdl: Unable to open file \"examples/wsdl\": Is a directory\n");
    EXPECT_TOOL("wsdl examples/stations.json", 1,
                "nvk wsdl: examples/stations.json: Parse error: syntax error at line 1, column 1\n");
    EXPECT_TOOL("wsdl examples/wsdl/schemas/station.xsd --json", 1,
                "nvk wsdl: examples/wsdl/schemas/station.xsd: missing service\n");
    const std::string unwritable = (dir / "no/such/folder.zip").string();
    EXPECT_TOOL("wsdl bundle examples/wsdl/stations.wsdl -o " + unwritable, 1, "nvk wsdl: cannot write " + unwritable + "\n");
    EXPECT_TOOL("wsdl bundle " + missing + " -o " + (dir / "out.zip").string(), 1,
                "nvk wsdl: " + missing + ": Unable to open file \"" + missing + "\": No such file or directory\n");
    EXPECT_FALSE(std::filesystem::exists(dir / "out.zip"));
    nvktest::ToolRun twoFiles = runTool("wsdl examples/wsdl/stations.wsdl --json examples/wsdl/stations.wsdl");
    EXPECT_EQ(twoFiles.status, 2);
    EXPECT_EQ(twoFiles.out.rfind("nvk wsdl: expected FILE and optionally --json\n", 0), 0u) << twoFiles.out;
    nvktest::ToolRun usage = runTool("wsdl bundle examples/wsdl/stations.wsdl");
    EXPECT_EQ(usage.status, 2);
    EXPECT_EQ(usage.out.rfind("nvk wsdl: bundle takes FILE -o OUT.zip\n", 0), 0u) << usage.out;
}
