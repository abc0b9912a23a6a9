// The in-memory protocol and the picture drawn of it.
#include <gtest/gtest.h>

#include "nvk/platform/Exception.h"
#include "nvk/protocol/CProtocolInfo.h"
#include "nvk/protocol/CProtocolPicture.h"
#include "tests/protocol/ProtocolTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using namespace nvktest;

TEST(ProtocolModel, ComponentsConnectionsAndTheirChecks) {
    tovan::Ptr<CProtocolInfo> p(new CProtocolInfo(u"flow"));
    p->addComponent(1, u"A");
    p->addComponent(2, u"B");
    p->addComponent(3, u"C");
    EXPECT_THROW_MSG(p->addComponent(2, u"again"), tovan::BadParameterException,
                     "Local ID 2 is already used in protocol flow");
    EXPECT_THROW_MSG(p->addConnection({1, 9, tovan::PortPass}), tovan::BadParameterException,
                     "No component with local ID 9 in protocol flow");
    EXPECT_THROW_MSG(p->addConnection({1, 2, tovan::PortInput}), tovan::BadParameterException,
                     "A connection leaves from a pass or a fail port, not port 1");
    EXPECT_EQ(p->getNumConnections(), 0);
    p->addConnection({1, 2, tovan::PortPass});
    p->addConnection({2, 3, tovan::PortFail});
    p->addConnection({1, 3, tovan::PortPass});
    EXPECT_THROW_MSG(p->getComponent(3), tovan::InvalidIndexException, "Index 3 is out of range (last valid index 2)");
    EXPECT_THROW_MSG(p->removeConnection(-1), tovan::InvalidIndexException,
                     "Index -1 is out of range (last valid index 2)");
    // Removing B takes its connections with it, and the local-ID lookup follows.
    p->removeComponent(1);
    EXPECT_EQ(p->getNumConnections(), 1);
    EXPECT_EQ(p->getConnection(0), (tovan::ConnectionInfo{1, 3, tovan::PortPass}));
    EXPECT_EQ(p->findComponentIndex(3), 1);
    EXPECT_EQ(p->findComponentIndex(2), -1);
    p->getComponent(1)->setIntAttribute(tovan::NVK_ComponentLocalID, 30);
    EXPECT_EQ(p->findComponentIndex(30), 1);
    EXPECT_EQ(p->findComponentIndex(3), -1);
    EXPECT_TRUE(p->getComponent(1)->removeAttribute(tovan::NVK_ComponentLocalID));
    EXPECT_EQ(p->findComponentIndex(30), -1);
}

TEST(ProtocolModel, AttributesAndParameters) {
    tovan::Ptr<CProtocolInfo> p(new CProtocolInfo(u"flow"));
    tovan::iComponentInfo* c = p->addComponent(1, u"A");
    int32_t i = 7;
    EXPECT_FALSE(c->getIntAttribute(tovan::NVK_ComponentPoint, i));  // absent
    c->setPointAttribute(tovan::NVK_ComponentPoint, {3, 4});
    EXPECT_FALSE(c->getIntAttribute(tovan::NVK_ComponentPoint, i));  // another type
    EXPECT_EQ(i, 7);
    EXPECT_TRUE(c->removeAttribute(tovan::NVK_ComponentPoint));
    EXPECT_FALSE(c->removeAttribute(tovan::NVK_ComponentPoint));

    c->setParameter(u"Limit", tovan::ParameterValue::ofInteger(5));
    c->setParameter(u"LIMIT", tovan::ParameterValue::ofInteger(6));  // the same name, folded
    EXPECT_EQ(c->getParameterNames(), std::vector<tovan::WString>{u"Limit"});
    EXPECT_EQ(c->findParameter(u"limit")->getValue(), tovan::ParameterValue::ofInteger(6));
    EXPECT_EQ(c->findParameter(u"limit")->getTypeText(), tovan::WString(tovan::NVK_StringType));
    EXPECT_EQ(c->findParameter(u"limit")->findMetaData(), nullptr);
    EXPECT_FALSE(tovan::ParameterValue::ofInteger(1) == tovan::ParameterValue::ofReal(1.0));
    EXPECT_THROW_MSG(c->setParameter(u"", tovan::ParameterValue::ofBoolean(true)), tovan::BadParameterException,
                     "A parameter needs a name");
    // Renaming keeps place, value, type and metadata; failures change nothing.
    tovan::iParameter& second = c->setParameter(u"Other", tovan::ParameterValue::ofText(u"x"));
    second.setTypeText(tovan::NVK_LinkParentParameterType);
    second.getMetaData().define(tovan::NVK_RevertName, tovan::WString(u"Other"));
    EXPECT_THROW_MSG(c->renameParameter(u"Other", u"limit"), tovan::Exception, "Parameter 'limit' already exists");
    EXPECT_THROW_MSG(c->renameParameter(u"Missing", u"New"), tovan::Exception, "Parameter 'Missing' not found");
    EXPECT_THROW_MSG(c->renameParameter(u"Other", u""), tovan::BadParameterException, "A parameter needs a name");
    EXPECT_EQ(c->getParameterNames(), (std::vector<tovan::WString>{u"Limit", u"Other"}));
    c->renameParameter(u"other", u"OTHER");  // a change of case alone
    c->renameParameter(u"Limit", u"Max");
    EXPECT_EQ(c->getParameterNames(), (std::vector<tovan::WString>{u"Max", u"OTHER"}));
    EXPECT_EQ(c->findParameter(u"other"), &second);
    EXPECT_EQ(second.getTypeText(), tovan::WString(tovan::NVK_LinkParentParameterType));
    second.setTypeText(tovan::WString());
    EXPECT_EQ(second.getTypeText(), tovan::WString(tovan::NVK_StringType));
    EXPECT_TRUE(c->removeParameter(u"other"));
    EXPECT_TRUE(c->removeParameter(u"max"));
    c->setParameter(u"Limit", tovan::ParameterValue::ofInteger(6));
    EXPECT_TRUE(c->removeParameter(u"limit"));
    EXPECT_EQ(c->findParameter(u"Limit"), nullptr);
    EXPECT_EQ(c->getProtocol(), p.get());
}

TEST(ProtocolPicture, DrawsBoxesArrowsAndNotesWithEscapedText) {
    auto p = makeProtocol({{1, "Read <raw> & clean", 90, 95}, {2, "Loop", 390, 95}}, {{1, 2}, {2, 2, "fail"}},
                          "\"stickyNotes\":[\"%VERSION 3%\",\"90 -500 200 80\",\"Check \\\"units\\\"\",\"\"]");
    std::string svg = CProtocolPicture::RenderSvg(p.get());
    EXPECT_EQ(svg.rfind("<?xml", 0), 0u);
    EXPECT_NE(svg.find(">Read &lt;raw&gt; &amp; clean</text>"), std::string::npos) << svg;
    EXPECT_NE(svg.find(">Check &quot;units&quot;</text>"), std::string::npos);
    EXPECT_NE(svg.find("Loop \xE2\x86\x92 Loop (fail), closes a loop"), std::string::npos);
    EXPECT_NE(svg.find("marker-end=\"url(#pass)\"><title>Read"), std::string::npos);
    // The note at Y 500 is inside the picture: the view box reaches below it.
    size_t vb = svg.find("viewBox=\"");
    ASSERT_NE(vb, std::string::npos);
    int x = 0, y = 0, w = 0, h = 0;
    ASSERT_EQ(sscanf(svg.c_str() + vb, "viewBox=\"%d %d %d %d\"", &x, &y, &w, &h), 4);
    EXPECT_GE(y + h, 580);

    tovan::Ptr<CProtocolInfo> empty(new CProtocolInfo(u"nothing"));
    EXPECT_NE(CProtocolPicture::RenderSvg(empty.get()).find("</svg>"), std::string::npos);
}
