#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

class QVTAppInfo;
class QVTWebRequest;
class QVTWebResponse;

/// The service calls before an upload. Each is one blocking exchange, without retries, and prints
/// its own line; a transport failure counts as status 0. What the app does not have is "(null)" in
/// a path and is left out of a form.

/// A request with the tool's headers, and, unless `method` is "GET", the app's two version fields.
std::shared_ptr<QVTWebRequest> setupRequest(const std::string& method, const std::string& path,
                                            const QVTAppInfo& appInfo);

/// Prints `context` with the message in the response's body ("error", "message"), else with the
/// status code.
void logErrorResponse(std::string_view context, const QVTWebResponse& response);

/// Writes one line about a failed request to the system log: the error, or the status and message
/// of the service or a proxy, without key and secret. No line when the response has no message.
void logFailedRequest(const QVTWebResponse& response, const QVTAppInfo& appInfo);

/// True when the app belongs to the organisation of key and secret.
bool releaseValidation(const QVTAppInfo& appInfo);

bool addReleaseNotes(const QVTAppInfo& appInfo, const std::string& notes);

/// Grants access in one request, without notifications. True, without a request, when both lists
/// are empty.
bool addTesters(const QVTAppInfo& appInfo, const std::vector<std::string>& emails,
                const std::vector<std::string>& groupAliases);
