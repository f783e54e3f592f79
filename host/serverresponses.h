#ifndef SERVERRESPONSES_H
#define SERVERRESPONSES_H

#include <QString>

#include <string>

// The host's own answers, as complete response texts. Everything below the plug-in's paths
// is the plug-in's; these cover the rest and the failures before a request is whole.
namespace ServerResponses {

// An error in the plug-in's own form and bytes: its head lines and an indented
// {"code", "message"} body, so clients parse it like any other error; Retry-After in seconds.
std::string pluginError(unsigned status, int code, const QString &message, int retryAfter = 0);
std::string health(bool infoDbAnswers, bool keepAlive);
// 200 with `body` as it is: the reference page, the metrics.
std::string page(const char *contentType, const std::string &body, bool keepAlive);
std::string notFound(bool keepAlive);
std::string badRequest();
std::string requestTimeout();
std::string payloadTooLarge();
std::string headersTooLarge();
// An address over the limit of failed authentications; Retry-After in seconds.
std::string tooManyRequests(int retryAfter, bool keepAlive);
// A customer token outside the safe characters, refused before dispatch: in the plug-in's
// own error form (the code of an invalid ID), so clients parse it like any other error.
std::string invalidToken();
// A request the host will not run: the queue is full, it waited past its deadline, or the
// host is stopping. In the plug-in's form of a server that cannot serve now (the code of a
// database not ready), so clients retry as they do then; Retry-After in seconds.
std::string busy(int retryAfter);

} // namespace ServerResponses

#endif
