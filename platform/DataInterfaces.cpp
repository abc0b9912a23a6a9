// Out-of-line destructors give the data interfaces one home for their
// vtables and type information, so dynamic_cast across the library boundary
// sees one type.
#include "platform/ReferenceSet.h"
#include "platform/iMetaData.h"
#include "platform/iNode.h"
#include "platform/iPropertyCollection.h"
#include "platform/iXPathParser.h"

namespace tovan {

iHaveProperties::~iHaveProperties() = default;
iProperty::~iProperty() = default;
iPropertyCollection::~iPropertyCollection() = default;
iMetaData::~iMetaData() = default;
iNode::~iNode() = default;
iXPathParser::~iXPathParser() = default;

}  // namespace tovan
