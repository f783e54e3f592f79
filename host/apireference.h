#ifndef APIREFERENCE_H
#define APIREFERENCE_H

#include <string>
#include <vector>

// Made at build time from docs/openapi.yaml (and the README's curl lines) by
// host/apireference.py, so the page and the routes cannot drift from the description that
// tests hold against the code.
namespace ApiReference {

// The HTML page of GET /docs: static, self-contained, no scripts.
const std::string &page();
// The documented paths, sorted, with placeholders for identifiers: "/webapi/person/{id}".
const std::vector<std::string> &routes();

} // namespace ApiReference

#endif
