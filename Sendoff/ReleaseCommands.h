#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

class QVTAppInfo;
class QVTWebRequest;
class QVTWebResponse;

/// The calls that come before an upload. Each is one blocking exchange with the service and prints
/// its own line; a transport failure counts as status 0. None is tried again. What the app does not
/// have stands as "(null)" in a path and is left out of a form.

/// A request with the tool's headers, and, unless `method` is "GET", the app's two version fields.
std::shared_ptr<QVTWebRequest> setupRequest(const std::string& method, const std::string& path,
                                            const QVTAppInfo& appInfo);

/// Prints one line: `context` with the message in the answer's body ("error", "message"), or
/// without one, with the status code.
void logErrorResponse(std::string_view context, const QVTWebResponse& response);

/// Tells the system log in one line why a request has failed, since the console's lines have little
/// room: why there was no answer, or what the service (or a proxy) says with its status. Key and
/// secret are left out of its words. No line when it says nothing.
void logFailedRequest(const QVTWebResponse& response, const QVTAppInfo& appInfo);

/// Asks whether the app belongs to the organisation of key and secret.
bool releaseValidation(const QVTAppInfo& appInfo);

bool addReleaseNotes(const QVTAppInfo& appInfo, const std::string& notes);

/// Grants access to e-mail addresses and group aliases, all in one request that notifies nobody.
/// With both lists empty it sends nothing and is true.
bool addTesters(const QVTAppInfo& appInfo, const std::vector<std::string>& emails,
                const std::vector<std::string>& groupAliases);
