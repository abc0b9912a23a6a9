#pragma once
// A readable, line-per-item text of a data tree, for the tool and for tests.
#include <string>

#include "nvk/platform/Export.h"
#include "nvk/platform/Value.h"
#include "nvk/platform/iNode.h"

namespace nvk {

/// The value's class without its tag prefix and "Value" suffix ("Integer",
/// "DoubleArray", "NDimArray"); an n-dimensional array adds its shape and
/// element class ("NDimArray 2x3 Double").
NVK_EXPORT std::string DescribeValueType(const tovan::Value& value);

/// The tree below and including `node`, two blanks of indent per level:
///   (unnamed)
///     id: Integer = 5
///     tags: StringArray = ["a","b"]
///     geometry
///       kind: String = "point"
/// A node line is its name ("(unnamed)" without one); each property line is
/// its name, its value's class and its value as JSON text (UTF-8).
NVK_EXPORT std::string DescribeNodeTree(const tovan::iNode& node, int indent = 0);

}  // namespace nvk
