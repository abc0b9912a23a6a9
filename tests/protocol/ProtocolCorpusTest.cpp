// The real workflow graphs of the shared corpus: every one loads, is perceived consistently
// and lays out deterministically with sibling order kept and stacks in columns.
#include <gtest/gtest.h>

#include <filesystem>

#include "nvk/protocol/CProtocolFile.h"
#include "nvk/protocol/CProtocolLayoutUtils.h"
#include "tests/protocol/ProtocolTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using tovan::BitsetValue;

namespace {

tovan::Ptr<CProtocolInfo> load(const std::filesystem::path& path) {
    return CProtocolFile::Read(tovan::toWide(path.string()));
}

}  // namespace

TEST(ProtocolCorpus, EveryWorkflowLoadsAndRoundTrips) {
    auto files = nvktest::corpusProtocols();
    SKIP_WITHOUT_CORPUS(files.empty() ? std::filesystem::path() : files[0]);
    EXPECT_GE(files.size(), 50u);
    for (const auto& f : files) {
        SCOPED_TRACE(f.filename().string());
        tovan::Ptr<CProtocolInfo> p = load(f);
        EXPECT_GT(p->getNumComponents(), 0);
        tovan::WString text = CProtocolFile::WriteText(p.get());
        tovan::Ptr<CProtocolInfo> again = CProtocolFile::ReadText(text, u"again.json");
        EXPECT_EQ(CProtocolFile::WriteText(again.get()), text);
    }
}

TEST(ProtocolCorpus, DistancesFollowEveryConnectionThatIsNotALoop) {
    auto files = nvktest::corpusProtocols();
    SKIP_WITHOUT_CORPUS(files.empty() ? std::filesystem::path() : files[0]);
    for (const auto& f : files) {
        SCOPED_TRACE(f.filename().string());
        tovan::Ptr<CProtocolInfo> p = load(f);
        for (bool furthest : {true, false}) {
            CProtocolUtils u;
            u.SetXPositionAlgorithm(CProtocolUtils::DistanceFromStartNode, furthest);
            u.LoadProtocolComponents(p.get());
            for (int s : u.GetStartNodes()) EXPECT_EQ(u.GetDistance(s), 0);
            for (int k = 0; k < u.GetNumConnections(); ++k) {
                if (u.GetLoopConnections().test(size_t(k))) continue;
                int from = u.GetDistance(u.GetConnectionFrom(k)), to = u.GetDistance(u.GetConnectionTo(k));
                if (from < 0) continue;
                // Longest paths put every target beyond its source; shortest at most one step on.
                if (furthest) EXPECT_GT(to, from) << "connection " << k;
                else EXPECT_LE(to, from + 1) << "connection " << k;
            }
        }
    }
}

TEST(ProtocolCorpus, LayoutIsDeterministicKeepsOrderAndUsesColumns) {
    auto files = nvktest::corpusProtocols();
    SKIP_WITHOUT_CORPUS(files.empty() ? std::filesystem::path() : files[0]);
    for (const auto& f : files) {
        SCOPED_TRACE(f.filename().string());
        tovan::Ptr<CProtocolInfo> first = load(f), second = load(f);
        CProtocolLayoutUtils a, b;
        BitsetValue changed;
        bool notes = false;
        a.LayoutProtocol(first.get(), u"", changed, notes);
        b.LayoutProtocol(second.get(), u"", changed, notes);
        ASSERT_EQ(CProtocolFile::WriteText(first.get()), CProtocolFile::WriteText(second.get()));

        // Siblings and start nodes run in protocol order once laid out (start nodes of
        // different networks run network by network).
        CProtocolUtils after;
        after.LoadProtocolComponents(first.get());
        std::vector<int> networkOf(size_t(after.GetNumComponents()));
        for (int n = 0; n < a.GetNumNetworks(); ++n)
            for (int c : a.GetNetwork(n).members) networkOf[size_t(c)] = n;
        for (int c = 0; c < after.GetNumComponents(); ++c)
            for (int below : after.GetMustBeAboveList(c))
                if (networkOf[size_t(c)] == networkOf[size_t(below)]) {
                    EXPECT_LT(CProtocolUtils::getLocationMetric(after.GetStoredPoint(c)),
                              CProtocolUtils::getLocationMetric(after.GetStoredPoint(below)))
                        << after.GetLocalID(c) << " must run before " << after.GetLocalID(below);
                }

        // Every member of a stack shares its X, and stacks are a column apart (a medium
        // margin more where widened).
        for (int n = 0; n < a.GetNumNetworks(); ++n) {
            const auto& stacks = a.GetNetwork(n).stacks;
            if (a.GetNetwork(n).members.size() < 2) continue;
            for (size_t k = 0; k < stacks.size(); ++k) {
                int x = after.GetStoredPoint(stacks[k][0]).x;
                for (int c : stacks[k]) EXPECT_EQ(after.GetStoredPoint(c).x, x) << "stack " << k;
                if (k == 0) continue;
                int step = x - after.GetStoredPoint(stacks[k - 1][0]).x;
                EXPECT_TRUE(step == 300 || step == 375) << "stack " << k << " step " << step;
            }
        }
        int i = 0, j = 0;
        EXPECT_FALSE(a.HasNetworkOverlap(i, j)) << "networks " << i << " and " << j;
    }
}
