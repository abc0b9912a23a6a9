// nvk link and nvk series: what they print, and their exit statuses.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestSupport.h"

using nvktest::runTool;
using nvktest::ToolRun;

TEST(LinkCommand, PrintsTheLinkAndWarnsWhenLong) {
    EXPECT_TOOL(
        "link --server h.example --protocol 'Demo\\Score' --param 'A=1 2' --param T=x --param t= "
        "--style 3:r.pdf --progress hi --array-delim ,",
        0,
        "https://h.example/auth/launchjob?$protocol=Demo%2FScore&%24streamfile=r.pdf"
        "&%24progressmessage=hi&%24arraydelim=%2C&A=1%202&T=x&T=\n");
    EXPECT_TOOL("link --server http://h --protocol P --run-as creator --session S1 --param x=1", 0,
                "http://h/auth/rj/launchjob?_compat=1&_protocol=P&x=1&_session=S1\n");
    ToolRun form = runTool("link --server h --protocol P --style 5 --run-as anonymous --param 'q=\"'");
    EXPECT_EQ(form.out, "https://h/webform/?protocol=P&container=true&timeout=600&parameters=%7B%22q%22%3A%22%5C%22%22%7D"
                        "&q=%22\n");

    // 2083 characters exactly: quiet; one more: printed all the same, with the warning.
    const std::string head = "https://h/auth/launchjob?$protocol=P&%24streamdata=%2A&v=";
    for (size_t length : {size_t(2083), size_t(2084)}) {
        std::string value(length - head.size(), 'a');
        ToolRun big = runTool("link --server h --protocol P --param v=" + value);
        EXPECT_EQ(big.status, 0);
        std::string expected = head + value + "\n";
        if (length > 2083)
            expected += "warning: The length of the generated protocol link exceeds 2083 characters, and so may not "
                        "work in Internet Explorer.\n";
        EXPECT_EQ(big.out, expected);
    }
}

TEST(LinkCommand, RefusalsAndBadUsage) {
    EXPECT_TOOL("link --server h --protocol P --run-as creator", 1,
                "nvk link: A session ID must be registered to run as the protocol link creator\n");
    EXPECT_TOOL("link --server h --protocol ''", 1, "nvk link: No protocol identifier specified\n");
    for (const char* args : {"link --protocol P", "link --server h --protocol P --style 6",
                             "link --server h --protocol P --style 1x", "link --server h --protocol P --param =x",
                             "link --server h --protocol P --param x", "link --server h --protocol P --session s",
                             "link --server h --protocol P --run-as root", "link --server h --protocol P --frob 1",
                             "link --server h --protocol"}) {
        ToolRun bad = runTool(args);
        EXPECT_EQ(bad.status, 2) << args;
        EXPECT_EQ(bad.out.rfind("nvk link: ", 0), 0u) << args << ": " << bad.out;
    }
}

TEST(SeriesCommand, ParseAndMake) {
    EXPECT_TOOL("series parse 'Step 12 of 3'", 0, "prefix: Step 12 of\nindex: 3\nsuffix: \n");
    ToolRun json = runTool("series parse 'Item \"7\" 8  b\\ ' --json");
    EXPECT_EQ(json.status, 0);
    EXPECT_EQ(json.out, "{\"prefix\":\"Item \\\"7\\\"\",\"index\":8,\"suffix\":\"b\\\\\"}\n");
    EXPECT_TOOL("series parse Item7 --json", 1, "nvk series: 'Item7' is not a series parameter name\n");
    EXPECT_EQ(runTool("series make Item 7").out, "Item 7\n");
    EXPECT_EQ(runTool("series make Item -7 extra").out, "Item -7 extra\n");
    for (const char* args : {"series make Item 7x", "series make Item 2147483648", "series make Item", "series parse",
                             "series parse a --xml", "series split a"})
        EXPECT_EQ(runTool(args).status, 2) << args;
    // Commands with subcommands name the choices, or the word they did not know.
    EXPECT_EQ(runTool("series").out.rfind("nvk series: expected 'parse' or 'make'\nusage: ", 0), 0u);
    EXPECT_EQ(runTool("credentials frob").out.rfind("nvk credentials: unknown subcommand 'frob'\nusage: ", 0), 0u);
}
