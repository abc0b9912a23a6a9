#include <gtest/gtest.h>

#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/ArrayValue.h"
#include "nvk/services/CAuthUtils.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using namespace tovan;

TEST(JobSharing, UsersAndGroupsRoundTripThroughThreeArrays) {
    Ptr<CPropertyCollection> props(CPropertyCollection::newInstance());
    std::vector<WString> users{WString(u"ann"), WString(u"bob")}, groups{WString(u"Chemists")};
    props->define(WString(NVK_JobInfoAccessNames), WString(u"to be replaced"));
    CAuthUtils::SetJobSharingProps(users, groups, *props);
    EXPECT_EQ(props->getSize(), 3);
    const auto& types = props->get(WString(NVK_JobInfoAccessTypes)).getValue().getAs<StringArrayValue>();
    ASSERT_EQ(types.size(), 3u);
    EXPECT_EQ(types.get(0), WString(NVK_Auth_User));
    EXPECT_EQ(types.get(2), WString(NVK_Auth_File));
    EXPECT_EQ(props->get(WString(NVK_JobInfoAccessIncludes)).getValue().getAs<BooleanArrayValue>().size(), 3u);

    DiagnosticCapture capture;
    setDebugTargets("CAuthUtils");
    std::vector<WString> u{WString(u"stale")}, g;
    CAuthUtils::GetJobSharingProps(u, g, *props);
    setDebugTargets("");
    EXPECT_EQ(u, users);
    EXPECT_EQ(g, groups);
    ASSERT_EQ(capture.debugLines().size(), 1u);
    EXPECT_EQ(capture.debugLines()[0].rfind("CAuthUtils: CAuthUtils::GetJobSharingProps: namesProp = 0x", 0), 0u);

    // An excluded entry is skipped; without the arrays the lists come back empty.
    props->get(WString(NVK_JobInfoAccessIncludes)).getEditableValue().getAs<BooleanArrayValue>().set(0, false);
    CAuthUtils::GetJobSharingProps(u, g, *props);
    EXPECT_EQ(u, std::vector<WString>{WString(u"bob")});
    props->remove(WString(NVK_JobInfoAccessTypes));
    CAuthUtils::GetJobSharingProps(u, g, *props);
    EXPECT_TRUE(u.empty() && g.empty());
}
