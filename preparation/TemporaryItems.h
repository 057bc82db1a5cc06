#pragma once

#include <string>

#include "foundation/base/Result.h"

/// What a run makes in the temporary folder, and how other runs know of it.
///
/// Each item is claimed before it is made: a file named after it in the folder
/// "com.quorvantile.claims-<uid>" is locked by this process until the item is released. A claim
/// that nobody holds is what is left of a process that was killed. Names that begin with
/// "com.quorvantile." directly in the temporary folder are the tool's shared folders: they may be
/// claimed but are never removed. All of it is safe to call from several threads.
namespace TemporaryItems {

/// Claims a folder directly in the temporary folder (a full path), which may be there already. As
/// long as another process has it this waits, and says so in one debug line; that is a check point
/// of an interrupted run. Fails when it cannot be claimed. Claiming twice is once.
foundation::Result<> claimFolder(const std::string& path);

/// Claims an item that nobody else knows of, to be made below one of the tool's shared folders.
/// Never fails: without a claim the item is not found should this process be killed.
void claimNew(const std::string& path);

/// Tells that this process has removed an item from the Payload of a folder that it has claimed:
/// what comes in its place is this process's. Does nothing for another folder.
void ownFromPayload(const std::string& folder, const std::string& name);

/// Removes what `removeAll` would of a folder that this process has claimed, and keeps the claim.
/// Does nothing for another folder.
void removeOwn(const std::string& folder);

/// Ends all claims of this process and leaves the items: the end of a run. The end of the process
/// does the same, unless a signal or a call like `_exit` ends it.
void releaseAll();

/// Removes the items claimed, then ends the claims. Of a folder that was there before its claim
/// only what is new in its Payload goes.
void removeAll();

/// Removes what processes of this user have claimed in this temporary folder before they were
/// killed: claim and item must both be this user's own and unchanged for a day, the claim held by
/// nobody, the item and the folders above it no links. Leaves anything else alone.
void removeLeftovers();

}  // namespace TemporaryItems
