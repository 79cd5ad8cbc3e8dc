#pragma once

/// @file
/// What every upload makes of the server's answer.

#include "Exchange.h"

/// Judges a refused upload: the session's validity is looked at, and a conflict's reply brings the item's current attributes.
/// @param[in,out] attributes  replaced where the result is 21077 and the reply carries an item.
[[nodiscard]] ResultCode JudgeRefusedUpload(CNativeHttp& client, const FunctionTraceScope& trace, Exchange& exchange,
                                            std::shared_ptr<IServerAttributes>& attributes);

/// Takes the item of the reply to an upload, or to a renaming, which is answered alike.
/// @param[in,out] attributes  replaced on success.
/// @return 13 where the reply does not describe exactly one item.
[[nodiscard]] ResultCode TakeUploadedItem(const FunctionTraceScope& trace, const Exchange& exchange,
                                          std::shared_ptr<IServerAttributes>& attributes);
