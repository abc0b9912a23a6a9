#include <gtest/gtest.h>

#include "nvk/data/CBaseNode.h"
#include "nvk/data/CObjectTransportNode.h"
#include "nvk/data/StreamPrimitives.h"
#include "nvk/platform/ByteStream.h"
#include "nvk/platform/ReferenceSet.h"
#include "nvk/platform/iMetaData.h"
#include "tests/data/DataTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using namespace datatest;
using nvk::CBaseNode;
using nvk::CObjectTransportNode;
using nvktest::utf8;

namespace {

constexpr const char* kOwnParent = "Error: attempting to set a data node to be its own parent.";
constexpr const char* kNullNode = "Error: attempting to add a null node.";

std::string indexExpr(const iNode& n, const iNode* relativeTo = nullptr) {
    WString text = u"stale";
    n.getIndexPathExpression(text, relativeTo);
    EXPECT_FALSE(text.isNull());
    return utf8(text);
}

}  // namespace

TEST(NodeTree, IndexPathsCountFromTheRootOrAnAncestor) {
    NodePtr root = node(u"root");
    CBaseNode* a = child(*root, u"a");
    child(*root, u"b");
    CBaseNode* c = child(*root, u"c");
    child(*a, u"a1");
    CBaseNode* a2 = child(*a, u"a2");

    EXPECT_EQ(indexExpr(*root), "");
    EXPECT_EQ(indexExpr(*c), "/*[3]");
    EXPECT_EQ(indexExpr(*a2), "/*[1]/*[2]");
    EXPECT_EQ(indexExpr(*a2, a), "/*[2]");
    std::vector<int> path{7, 7};
    a2->getIndexPath(path, a2);
    EXPECT_TRUE(path.empty());
    a2->getIndexPath(path);
    EXPECT_EQ(path, (std::vector<int>{0, 1}));

    // Relative to a node that is not an ancestor: refused, output untouched.
    EXPECT_THROW_MSG(a2->getIndexPath(path, c), Exception, "Relative ancestor node not found.");
    EXPECT_EQ(path, (std::vector<int>{0, 1}));
    EXPECT_EQ(a2->getRoot(), root.get());
}

TEST(NodeTree, AppendMovesAChildBetweenParents) {
    NodePtr p1 = node(u"p1"), p2 = node(u"p2");
    CBaseNode* x = child(*p1, u"x");
    child(*p1, u"y");
    EXPECT_EQ(x->getRefCount(), 1);
    p2->appendChild(x);
    EXPECT_EQ(childNames(*p1), "y");
    EXPECT_EQ(childNames(*p2), "x");
    EXPECT_EQ(x->findParent(), p2.get());
    EXPECT_EQ(x->getRefCount(), 1);
    // Appending an existing child again moves it to the end.
    child(*p2, u"z");
    p2->appendChild(x);
    EXPECT_EQ(childNames(*p2), "z,x");
    EXPECT_EQ(x->getRefCount(), 1);
}

TEST(NodeTree, AncestorCheckRunsOnlyForChildrenWithChildren) {
    NodePtr root = node(u"root");
    CBaseNode* mid = child(*root, u"mid");
    CBaseNode* leaf = child(*mid, u"leaf");

    EXPECT_THROW_MSG(leaf->appendChild(root.get()), Exception, kOwnParent);
    EXPECT_THROW_MSG(mid->appendChild(mid), Exception, kOwnParent);
    EXPECT_THROW_MSG(leaf->insertChildBefore(root.get(), nullptr), Exception, kOwnParent);
    EXPECT_THROW_MSG(mid->replaceChild(leaf, root.get()), Exception, kOwnParent);
    EXPECT_THROW_MSG(root->appendChild(nullptr), Exception, kNullNode);
    EXPECT_THROW_MSG(root->insertChildBefore(nullptr, mid), Exception, kNullNode);
    EXPECT_THROW_MSG(root->replaceChild(mid, nullptr), Exception, kNullNode);
    EXPECT_EQ(childNames(*root), "mid");
    EXPECT_EQ(childNames(*mid), "leaf");
    EXPECT_EQ(root->findParent(), nullptr);

    // The ancestor check passes a childless node, but one appended to itself would be its
    // own parent and every walk up from it would go round for ever: that is refused too.
    NodePtr lone = node(u"lone");
    EXPECT_THROW_FROM(lone->appendChild(lone.get()), Exception, "CNodeImplBase::appendChild: " + std::string(kOwnParent));
    EXPECT_FALSE(lone->hasChildren());
    EXPECT_EQ(lone->findParent(), nullptr);
    EXPECT_EQ(lone->getRoot(), lone.get());
    EXPECT_EQ(lone->getRefCount(), 1);
}

TEST(NodeTree, InsertTakesTheIndexBeforeDetaching) {
    NodePtr root = node(u"root");
    CBaseNode* a = child(*root, u"a");
    child(*root, u"b");
    CBaseNode* c = child(*root, u"c");
    CBaseNode* d = child(*root, u"d");

    root->insertChildBefore(a, c);  // a was earlier: it lands right of c
    EXPECT_EQ(childNames(*root), "b,c,a,d");
    root->insertChildBefore(d, c);  // d was later: plainly before c
    EXPECT_EQ(childNames(*root), "b,d,c,a");
    root->insertChildBefore(c, c);
    EXPECT_EQ(childNames(*root), "b,d,c,a");

    NodePtr other = node(u"other");
    root->insertChildBefore(other.get(), a);
    EXPECT_EQ(childNames(*root), "b,d,c,other,a");
    EXPECT_EQ(other->findParent(), root.get());
    EXPECT_EQ(other->getRefCount(), 2);

    NodePtr empty = node(u"empty");
    EXPECT_THROW_MSG(empty->insertChildBefore(other.get(), a), Exception, "Node has no child nodes");
    EXPECT_THROW_MSG(root->insertChildBefore(empty.get(), empty.get()), Exception,
                     "The specified node (empty) is not a child of this node (root)");
    EXPECT_THROW_MSG(root->insertChildBefore(empty.get(), nullptr), Exception,
                     "The specified node (null) is not a child of this node (root)");
    // The ancestor check comes before the check for children.
    EXPECT_THROW_MSG(a->insertChildBefore(root.get(), a), Exception, kOwnParent);
    EXPECT_THROW_MSG(a->insertChildBefore(empty.get(), a), Exception, "Node has no child nodes");
    EXPECT_EQ(childNames(*root), "b,d,c,other,a");
    EXPECT_EQ(empty->findParent(), nullptr);
}

TEST(NodeTree, ReplaceSwapsInPlaceAndRefusesSiblings) {
    NodePtr root = node(u"root");
    child(*root, u"a");
    CBaseNode* b = child(*root, u"b");
    child(*root, u"c");
    NodePtr keepB(b);

    NodePtr fresh = node(u"fresh");
    root->replaceChild(b, fresh.get());
    EXPECT_EQ(childNames(*root), "a,fresh,c");
    EXPECT_EQ(b->findParent(), nullptr);
    EXPECT_EQ(b->getRefCount(), 1);  // only keepB is left

    root->replaceChild(fresh.get(), fresh.get());
    EXPECT_EQ(childNames(*root), "a,fresh,c");
    EXPECT_THROW_MSG(root->replaceChild(fresh.get(), root->getChildAt(0)), Exception,
                     "Error detected: trying to replace a node with a sibling node");
    EXPECT_THROW_MSG(root->replaceChild(b, keepB.get()), Exception,
                     "The specified node (b) is not a child of this node (root)");
    EXPECT_THROW_MSG(keepB->replaceChild(root.get(), fresh.get()), Exception, "Node has no child nodes");
    EXPECT_EQ(childNames(*root), "a,fresh,c");

    // A replacement taken from another tree leaves that tree.
    NodePtr other = node(u"other");
    CBaseNode* moved = child(*other, u"moved");
    root->replaceChild(root->getChildAt(0), moved);
    EXPECT_EQ(childNames(*root), "moved,fresh,c");
    EXPECT_FALSE(other->hasChildren());
}

TEST(NodeTree, RemovalAndLookups) {
    NodePtr root = node(u"root");
    child(*root, u"item");
    child(*root, u"Item");
    child(*root, u"other");
    NodePtr stranger = node(u"item");

    NodeReferenceSet found;
    root->findChildrenByName(u"ITEM", found);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0], root->getChildAt(0));
    EXPECT_EQ(found[1], root->getChildAt(1));
    root->findChildrenByName(WString(), found);
    EXPECT_TRUE(found.isEmpty());

    EXPECT_FALSE(root->removeChild(stranger.get()));
    EXPECT_FALSE(root->removeChild(nullptr));
    EXPECT_EQ(root->getNumberOfChildren(), 3);
    EXPECT_THROW_MSG(root->removeChildAt(3), InvalidIndexException, "Index 3 is out of range (last valid index 2)");
    EXPECT_THROW_MSG(root->getChildAt(-1), InvalidIndexException, "Index -1 is out of range (last valid index 2)");
    EXPECT_EQ(root->getNumberOfChildren(), 3);

    Ptr<iNode> first(root->getChildAt(0));
    root->removeChildAt(0);
    EXPECT_EQ(childNames(*root), "Item,other");
    EXPECT_EQ(first->findParent(), nullptr);
    root->removeAllChildren();
    EXPECT_FALSE(root->hasChildren());
    EXPECT_THROW_MSG(root->getChildAt(0), InvalidIndexException, "Index 0 is out of range (last valid index -1)");
}

TEST(NodeTree, ValueIsTheFlaggedPropertyAndAssignsInPlace) {
    NodePtr n = node(u"n");
    const CBaseNode& cn = *n;
    EXPECT_TRUE(n->hasNullValue());
    EXPECT_TRUE(n->getValue().isNull());
    EXPECT_EQ(cn.getProperties(), nullptr);  // reading the value made nothing

    n->setValue(IntegerValue(4));
    const Value* first = &n->getValue();
    n->setValue(IntegerValue(5));
    EXPECT_EQ(&n->getValue(), first);  // same class: assigned in place
    EXPECT_EQ(utf8(n->getValue().toString()), "5");
    n->setValue(StringValue(u"five"));
    EXPECT_EQ(utf8(n->getValue().toString()), "five");
    EXPECT_FALSE(n->hasNullValue());

    iPropertyCollection& props = n->getProperties();
    ASSERT_EQ(props.getSize(), 1);
    EXPECT_EQ(utf8(props.get(0).getName()), "text-content");
    EXPECT_EQ(props.get(0).getFlags(), MetaDataNodeValue);

    // A read-only value property is still the node's to update.
    props.get(0).setFlags(MetaDataNodeValue | MetaDataReadOnly);
    n->setValue(StringValue(u"six"));
    EXPECT_EQ(utf8(n->getValue().toString()), "six");

    // An existing "text-content" property without the flag becomes the value.
    NodePtr m = node(u"m");
    m->getProperties().define(u"other", IntegerValue(1));
    m->getProperties().define(u"TEXT-CONTENT", IntegerValue(2));
    m->setValue(NullValue());
    EXPECT_TRUE(m->hasNullValue());
    EXPECT_EQ(propertyNames(m->getProperties()), "other,TEXT-CONTENT");
    EXPECT_EQ(m->getProperties().get(1).getFlags(), MetaDataNodeValue);
}

TEST(NodeTree, ClonesAreIndependentCopies) {
    NodePtr root = node(u"p:root");
    root->setValue(IntegerValue(1));
    root->getProperties().define(u"extra", StringValue(u"x"), MetaDataReadOnly);
    root->getInfo().setFlags(0x10);
    root->getInfo().getProperties().define(u"unit", StringValue(u"m"));
    CBaseNode* kid = child(*root, u"kid");
    child(*kid, u"grandkid");
    kid->setValue(DoubleValue(2.5));

    Ptr<iNode> shallow = root->cloneNode(false);
    EXPECT_FALSE(shallow->hasChildren());
    EXPECT_EQ(utf8(shallow->getName()), "p:root");
    EXPECT_EQ(utf8(shallow->getNamePrefix()), "p");

    Ptr<iNode> deep = root->cloneNode(true);
    EXPECT_EQ(deep->getClass(), CBaseNode::Tag);
    EXPECT_EQ(deep->findParent(), nullptr);
    EXPECT_EQ(childNames(*deep), "kid");
    EXPECT_EQ(childNames(*deep->getChildAt(0)), "grandkid");
    EXPECT_EQ(deep->getChildAt(0)->findParent(), deep.get());
    EXPECT_EQ(utf8(deep->getChildAt(0)->getValue().toString()), "2.5");
    EXPECT_EQ(propertyNames(deep->getProperties()), "text-content,extra");
    EXPECT_EQ(deep->getProperties().get(1).getFlags(), MetaDataReadOnly);
    ASSERT_NE(deep->findInfo(), nullptr);
    EXPECT_EQ(deep->findInfo()->getFlags(), 0x10u);
    EXPECT_EQ(utf8(deep->getInfo().getProperties().get(u"unit").getValue().toString()), "m");

    // Values and metadata are copies, not shared.
    EXPECT_NE(&deep->getValue(), &root->getValue());
    root->setValue(IntegerValue(9));
    root->getInfo().getProperties().removeAll();
    EXPECT_EQ(utf8(deep->getValue().toString()), "1");
    EXPECT_TRUE(deep->getInfo().hasProperties());

    // assignFromNode replaces what was there; without `deep` children stay.
    NodePtr target = node(u"target");
    child(*target, u"own");
    target->getProperties().define(u"gone");
    target->getInfo();
    NodePtr bare = node(u"bare");
    target->assignFromNode(*bare, false);
    EXPECT_EQ(utf8(target->getName()), "bare");
    EXPECT_EQ(target->getProperties().getSize(), 0);
    EXPECT_EQ(target->findInfo(), nullptr);
    EXPECT_EQ(childNames(*target), "own");
    target->assignFromNode(*deep, true);
    EXPECT_EQ(childNames(*target), "kid");

    // The node's own collection and metadata are refilled in place: references a caller
    // holds stay valid and show the new content.
    tovan::iPropertyCollection& props = target->getProperties();
    tovan::iMetaData& info = target->getInfo();
    info.setFlags(5);
    NodePtr source = node(u"source");
    source->getProperties().define(u"colour").setValue(StringValue(u"red"));
    source->getInfo().setFlags(2);
    target->assignFromNode(*source, false);
    EXPECT_EQ(&target->getProperties(), &props);
    EXPECT_EQ(target->findInfo(), &info);
    EXPECT_EQ(utf8(props.get(u"colour").getValue().toString()), "red");
    EXPECT_EQ(info.getFlags(), 2);

    // From itself, a node stays as it is (following the copy steps would empty it).
    target->assignFromNode(*target, true);
    EXPECT_EQ(utf8(target->getName()), "source");
    EXPECT_EQ(childNames(*target), "kid");
    EXPECT_EQ(props.getSize(), 1);
    // From one of its own children: the child is copied before the children are replaced.
    CBaseNode* inner = child(*target->getChildAt(0), u"grandchild");
    inner->setValue(IntegerValue(9));
    target->assignFromNode(*target->getChildAt(0), true);
    EXPECT_EQ(utf8(target->getName()), "kid");
    EXPECT_EQ(childNames(*target), "grandkid,grandchild");
}

TEST(NodeTree, ClearKeepsNameAndParent) {
    NodePtr root = node(u"root");
    CBaseNode* n = child(*root, u"n");
    child(*n, u"x");
    n->setValue(IntegerValue(3));
    n->getInfo().setFlags(1);
    n->clear();
    EXPECT_EQ(utf8(n->getName()), "n");
    EXPECT_EQ(n->findParent(), root.get());
    EXPECT_FALSE(n->hasChildren());
    EXPECT_FALSE(n->hasProperties());
    EXPECT_TRUE(n->hasNullValue());
    EXPECT_EQ(n->findInfo(), nullptr);
}

TEST(NodeTree, QualifiedNameParts) {
    nvk::cppNodeQName q;
    EXPECT_TRUE(q.getQName().isNull());
    for (auto [name, local, uri] : {std::tuple{u"ns:item", "item", "ns"}, {u":item", "item", "(null)"},
                                    {u"plain", "plain", "(null)"}}) {
        q.setName(name);
        EXPECT_EQ(utf8(q.getLocalName()), local);
        EXPECT_EQ(q.getUriName().isNull() ? "(null)" : utf8(q.getUriName()), uri);
    }
    q.setUriName(u"p");
    EXPECT_EQ(utf8(q.getQName()), "p:plain");
    q.setLocalName(u"other");
    EXPECT_EQ(utf8(q.getQName()), "p:other");

    // Through a stream, into a name that had parts of its own: what went out comes back.
    auto text = [](const tovan::WString& s) { return s.isNull() ? std::string("(null)") : utf8(s); };
    for (const char16_t* name : {u"ns:item", u"plain"}) {
        nvk::cppNodeQName written;
        written.setName(name);
        if (name[0] == u'n') written.setUriName(u"ns2");
        tovan::MemoryOutputStream out(2);
        written.serialize(out);
        nvk::cppNodeQName read = q;
        tovan::MemoryInputStream in(out.bytes(), 2);
        nvk::RecentName recent;
        read.deserialize(in, recent);
        EXPECT_EQ(in.remaining(), 0u);
        EXPECT_EQ(text(read.getQName()), text(written.getQName()));
        EXPECT_EQ(text(read.getLocalName()), text(written.getLocalName()));
        EXPECT_EQ(text(read.getUriName()), text(written.getUriName()));
    }
}

TEST(NodePool, RecycledNodesStartEmpty) {
    auto& pool = CBaseNode::pool();
    const int outstanding = pool.getOutstanding();
    CBaseNode* raw;
    {
        NodePtr n = node(u"used");
        raw = n.get();
        child(*n, u"kid");
        n->setValue(IntegerValue(1));
        n->getInfo();
        EXPECT_EQ(pool.getOutstanding(), outstanding + 2);
    }
    EXPECT_EQ(pool.getOutstanding(), outstanding);
    EXPECT_GE(pool.getFreeCount(), 2u);
    // The free list is a stack: the node released last comes back first.
    NodePtr again(CBaseNode::newInstance());
    EXPECT_EQ(again.get(), raw);
    EXPECT_TRUE(again->getName().isNull());
    EXPECT_FALSE(again->hasChildren());
    EXPECT_EQ(static_cast<const CBaseNode&>(*again).getProperties(), nullptr);
    EXPECT_EQ(again->findInfo(), nullptr);
    EXPECT_EQ(again->findParent(), nullptr);

    EXPECT_THROW_MSG(again->deleteInstance(), Exception,
                     "Tried to deleteInstance() an object with nonzero ref count: 1\n");
    EXPECT_EQ(again->getRefCount(), 1);
}

TEST(NodePool, ReleasingATreeEndsWhatItAloneHeldAtAnyDepth) {
    auto& nodes = CBaseNode::pool();
    auto& properties = nvk::CProperty::pool();
    auto& collections = nvk::CPropertyCollection::pool();
    const int nodesBefore = nodes.getOutstanding(), propertiesBefore = properties.getOutstanding(),
              carriersBefore = CObjectTransportNode::pool().getOutstanding(),
              collectionsBefore = collections.getOutstanding();
    const long namesBefore = nvk::SharedName::liveBlocks();
    constexpr int kLevels = 100000;  // a release recursing once per level runs out of stack
    NodePtr kept;
    Ptr<iProperty> heldProperty;
    Ptr<iPropertyCollection> heldCollection;
    Ptr<Value> heldRoomValue;  // lives in its property's room: the property waits for it
    {
        NodePtr root = node(u"root");
        iNode* tip = root.get();
        for (int i = 0; i < kLevels; ++i) {
            tip = child(*tip, u"level");
            tip->getProperties().define(u"depth", IntegerValue(i));
        }
        // Parts of leaves held elsewhere outlive the tree's end, emptied of nothing.
        iNode* leaf = child(*root, u"leaf");
        leaf->getProperties().define(u"held", StringValue(u"kept text"));
        leaf->getProperties().define(u"room", IntegerValue(7));
        heldProperty = Ptr<iProperty>(&leaf->getProperties().get(u"held"));
        heldRoomValue = Ptr<Value>(&leaf->getProperties().get(u"room").getEditableValue());
        iNode* other = child(*root, u"other");
        other->getProperties().define(u"whole", BooleanValue(true));
        heldCollection = Ptr<iPropertyCollection>(&other->getProperties());
        // Held elsewhere, a node outlives the tree with its subtree; below a
        // node of another class the tree still ends.
        kept = NodePtr(static_cast<CBaseNode*>(root->getChildAt(0)->getChildAt(0)));
        Ptr<CObjectTransportNode> carrier(CObjectTransportNode::newInstance());
        root->appendChild(carrier.get());
        child(*child(*carrier, u"below"), u"further");
        // So does a chain of carriers as deep.
        iNode* link = carrier.get();
        for (int i = 0; i < kLevels; ++i) {
            Ptr<CObjectTransportNode> next(CObjectTransportNode::newInstance());
            link->appendChild(next.get());
            link = next.get();
        }
    }
    EXPECT_EQ(kept->findParent(), nullptr);
    EXPECT_EQ(nvk::CNodeImplBase::TreeDepth(*kept, kLevels), kLevels - 1);
    EXPECT_EQ(kept->getProperties().get(u"depth").getValue().toString(), u"1");
    EXPECT_EQ(nodes.getOutstanding(), nodesBefore + kLevels - 1);
    EXPECT_EQ(utf8(heldProperty->getName()), "held");
    EXPECT_EQ(utf8(heldProperty->getValue().toString()), "kept text");
    EXPECT_EQ(heldProperty->findCollection(), nullptr);
    EXPECT_EQ(utf8(heldRoomValue->toString()), "7");
    EXPECT_EQ(propertyNames(*heldCollection), "whole");
    EXPECT_EQ(utf8(heldCollection->get(u"whole").getValue().toString()), "true");
    // The held property, the collection's, and the one whose room the value holds.
    EXPECT_EQ(properties.getOutstanding(), propertiesBefore + kLevels - 1 + 3);
    EXPECT_EQ(collections.getOutstanding(), collectionsBefore + kLevels - 1 + 1);
    kept.reset();
    heldProperty.reset();
    heldCollection.reset();
    heldRoomValue.reset();
    EXPECT_EQ(nodes.getOutstanding(), nodesBefore);
    EXPECT_EQ(properties.getOutstanding(), propertiesBefore);
    EXPECT_EQ(collections.getOutstanding(), collectionsBefore);
    EXPECT_EQ(CObjectTransportNode::pool().getOutstanding(), carriersBefore);
    EXPECT_EQ(nvk::SharedName::liveBlocks(), namesBefore);
}

namespace {

struct Payload : CountedObject {};

struct PlainPayload : Object {
    static inline int alive = 0;
    PlainPayload() { ++alive; }
    PlainPayload(const PlainPayload&) : Object() { ++alive; }
    ~PlainPayload() override { --alive; }
    Object* clone() const override { return new PlainPayload(*this); }
};

}  // namespace

TEST(ObjectTransportNode, OwnsItsObjectAndCopiesCarryIt) {
    Ptr<CObjectTransportNode> n(CObjectTransportNode::newInstance());
    Ptr<Payload> payload(new Payload);
    n->SetObject(payload.get());
    EXPECT_EQ(payload->getRefCount(), 2);
    n->setName(u"carrier");
    child(*n, u"kid");  // a CBaseNode child under a transport node

    Ptr<iNode> copy = n->cloneNode(true);
    auto* copied = copy->findAs<CObjectTransportNode>();
    ASSERT_NE(copied, nullptr);
    EXPECT_EQ(copied->GetObject(), payload.get());  // counted objects are shared
    EXPECT_EQ(payload->getRefCount(), 3);
    EXPECT_EQ(childNames(*copy), "kid");
    copy.reset();
    n->ReleaseObject();
    EXPECT_EQ(payload->getRefCount(), 1);

    n->SetObject(new PlainPayload);
    {
        Ptr<iNode> plainCopy = n->cloneNode(false);
        EXPECT_EQ(PlainPayload::alive, 2);  // other objects are cloned
    }
    EXPECT_EQ(PlainPayload::alive, 1);
    n.reset();  // back to the pool: the object goes with the node's content
    EXPECT_EQ(PlainPayload::alive, 0);
}
