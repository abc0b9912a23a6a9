// Out-of-line destructors give the data interfaces one home for their
// vtables and type information, so dynamic_cast across the library boundary
// sees one type.
#include "nvk/platform/ReferenceSet.h"
#include "nvk/platform/iMetaData.h"
#include "nvk/platform/iNode.h"
#include "nvk/platform/iPropertyCollection.h"
#include "nvk/platform/iXPathParser.h"

namespace tovan {

iHaveProperties::~iHaveProperties() = default;
iProperty::~iProperty() = default;
iPropertyCollection::~iPropertyCollection() = default;
iMetaData::~iMetaData() = default;
iNode::~iNode() = default;
iXPathParser::~iXPathParser() = default;

}  // namespace tovan
