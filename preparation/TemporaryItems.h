#pragma once

#include <string>

#include "foundation/base/Result.h"

/// What runs make in the temporary folder. Each item is claimed before it is made: this process
/// locks a file for it in "com.quorvantile.claims-<uid>". A claim that nobody holds was left by a
/// process that was killed. The tool's shared folders, "com.quorvantile.*", may be claimed but are
/// never removed. Thread-safe.
namespace TemporaryItems {

/// Claims a folder in the temporary folder, new or not, by its full path. Waits while another
/// process has the claim, unless this run is interrupted. Claiming again does nothing.
foundation::Result<> claimFolder(const std::string& path);

/// Claims an item with a unique name below one of the shared folders. Never fails: without a claim,
/// the item stays if this process is killed.
void claimNew(const std::string& path);

/// After this process has removed an item from the Payload of a claimed folder: what replaces it
/// belongs to this run.
void ownFromPayload(const std::string& folder, const std::string& name);

/// Removes what `removeAll` would remove of this folder, and keeps the claim.
void removeOwn(const std::string& folder);

/// Ends all claims and keeps the items, as a normal exit of the process does.
void releaseAll();

/// Removes the claimed items and ends the claims. Of a folder that already existed, only what is
/// new in its Payload is removed.
void removeAll();

/// Removes what killed processes of this user left, if item and claim are the user's own, unchanged
/// for a day and not links.
void removeLeftovers();

}  // namespace TemporaryItems
