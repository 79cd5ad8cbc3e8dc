#pragma once

/// @file
/// The appliance's requests, one function for each subject: it adds the subject's routes.

#include "Options.h"
#include "Router.h"
#include "Sessions.h"
#include "StateFolder.h"

#include <iosfwd>

namespace ApplianceParts
{

class Feed;
class ItemStore;
class ResumeStore;

/// "/endpoints", "/init", "/version".
void AddHandshakeRoutes(Router& router, const Options& options);

/// "/sessions", "/registrations", "/api/devices".
/// @param mail  where the mails to the user go, as text.
void AddSessionRoutes(Router& router, Sessions& sessions, Feed& feed, const StateFolder& state, std::ostream& mail);

/// "/folders": items, their content, and the mappings.
void AddFolderRoutes(Router& router, ItemStore& items, const StateFolder& state);

/// "/resume/upload".
void AddResumeRoutes(Router& router, ResumeStore& uploads, ItemStore& items);

/// "/delta".
void AddDeltaRoutes(Router& router, ItemStore& items, const StateFolder& state);

/// "/notifs".
void AddFeedRoutes(Router& router, Feed& feed);

/// "/share" and the audit endpoint.
void AddNoticeRoutes(Router& router, const ItemStore& items, const StateFolder& state);

} // namespace ApplianceParts
