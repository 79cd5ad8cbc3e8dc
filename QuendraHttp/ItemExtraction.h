#pragma once

/// @file
/// From a reply's body to attributes records, for every operation whose reply describes items.

#include "Tracing.h"

#include "QuendraHttp/QuendraHttp.h"

#include <cstdint>
#include <memory>

/// Reads a reply that describes items. The body is parsed once. A body that cannot be read, in full or in part, is no failure here:
/// it adds fewer records; what was added before stays.
/// @param[in,out] children  appended to: the items that the reply holds in its "contents" or its "document_info".
/// @param[in,out] self      appended to: the reply itself as an item. May be the same list as `children`.
/// @return the number of records added to both.
std::uint32_t ExtractAttributes(const ResponseBuffer& response, ServerItemList& children, ServerItemList& self);

/// The item of a reply that describes exactly one; null for a reply that describes none or several.
[[nodiscard]] std::shared_ptr<IServerAttributes> ExtractSingleItem(const ResponseBuffer& response);

/// What an operation tells and returns of the one item that its reply should describe.
struct ItemTaking
{
    TraceFormat<> taken;
    TraceFormat<> missing;
    ResultCode whenMissing;
};

/// Takes the item of a reply that describes exactly one.
/// @param[out] attributes  replaced on success only.
[[nodiscard]] ResultCode TakeSingleItem(const FunctionTraceScope& trace, const ResponseBuffer& response, const ItemTaking& taking,
                                        std::shared_ptr<IServerAttributes>& attributes);
