#!/usr/bin/env python3
"""Makes the host's API reference from docs/openapi.yaml and the README's curl lines: one
static HTML page (no scripts, nothing fetched) and the documented routes, written as a C++
source that defines what host/apireference.h declares.

    apireference.py OPENAPI_YAML README_MD OUTPUT_CPP
"""
import html
import json
import re
import sys

import yaml


def esc(text):
    return html.escape(str(text), quote=True)


def inline(text):
    """Plain text with `code` spans."""
    return re.sub(r"`([^`]+)`", r"<code>\1</code>", esc(text))


def prose(text):
    """Descriptions are folded: one paragraph a line."""
    return "\n".join("<p>%s</p>" % inline(p.strip()) for p in str(text or "").split("\n") if p.strip())


class ApiDoc:
    def __init__(self, doc):
        self.doc = doc
        self.errors = {row["code"]: row for row in doc.get("x-error-codes", [])}
        url = doc["servers"][0]["url"]
        self.prefix = re.sub(r"^[a-z]+://[^/]+", "", url).rstrip("/")

    def resolve(self, node):
        while isinstance(node, dict) and "$ref" in node:
            target = self.doc
            for part in node["$ref"].lstrip("#/").split("/"):
                target = target[part]
            node = target
        return node

    def type_of(self, schema):
        """A schema in a few words, with links to the named schemas."""
        if "$ref" in schema:
            name = schema["$ref"].rsplit("/", 1)[1]
            return '<a href="#schema-%s">%s</a>' % (esc(name), esc(name))
        if schema.get("type") == "array":
            return "array of " + self.type_of(schema.get("items", {}))
        if "allOf" in schema:
            return " + ".join(self.type_of(part) for part in schema["allOf"])
        words = esc(schema.get("type", "any"))
        if schema.get("format"):
            words += " (%s)" % esc(schema["format"])
        if schema.get("nullable"):
            words += " or null"
        return words

    def properties(self, schema):
        """(name, schema, required) of an object schema, allOf parts merged."""
        schema = self.resolve(schema)
        rows = []
        for part in schema.get("allOf", []):
            rows += self.properties(part)
        required = set(schema.get("required", []))
        for name, prop in (schema.get("properties") or {}).items():
            rows.append((name, prop, name in required))
        return rows

    def fields_table(self, schema):
        rows = self.properties(schema)
        if not rows:
            return ""
        out = ['<table class="fields"><tr><th>field</th><th>type</th><th>meaning</th></tr>']
        for name, prop, required in rows:
            out.append("<tr><td><code>%s</code>%s</td><td>%s</td><td>%s</td></tr>"
                       % (esc(name), " (required)" if required else "", self.type_of(prop),
                          inline(self.resolve(prop).get("description", ""))))
        out.append("</table>")
        return "\n".join(out)


def example_block(media):
    if "example" not in media:
        return ""
    text = json.dumps(media["example"], indent=4, sort_keys=True, ensure_ascii=False, default=str)
    return '<pre class="example">%s</pre>' % esc(text)


def readme_examples(readme):
    """The curl commands of the README's "Calling it" section as written there, each with the
    comment above it in its block."""
    section = re.search(r"^## Calling it\n(.*?)(?=^## )", readme, re.S | re.M)
    commands = []
    comment = ""
    pending = []
    for line in (section.group(1) if section else "").splitlines():
        if not line.startswith("    "):
            comment = ""
            continue
        line = line[4:]
        if line.startswith("#"):
            comment = line[1:].strip()
            continue
        pending.append(line)
        if not line.endswith("\\"):
            commands.append((comment, "\n".join(pending)))
            pending = []
    return commands


def route_pattern(path):
    return re.compile("^" + re.sub(r"\\\{[^}]+\\\}", "[^/]+", re.escape(path)) + "$")


def curl_route(command):
    """(METHOD, path) a curl command asks for."""
    url = re.search(r"https?://[^/\s]+(/[^\s']*)", command)
    method = "POST" if re.search(r"\s-d\s", command) else "GET"
    return method, (url.group(1) if url else "")


def render(api, readme):
    doc = api.doc
    info = doc["info"]
    examples = readme_examples(readme)
    operations = []
    for path, item in doc["paths"].items():
        for method, op in item.items():
            operations.append((method.upper(), api.prefix + path, op))

    out = ["<!DOCTYPE html>", '<html lang="en"><head><meta charset="utf-8">',
           '<meta name="viewport" content="width=device-width, initial-scale=1">',
           "<title>%s %s: API reference</title>" % (esc(info["title"]), esc(info["version"])),
           "<style>", STYLE, "</style></head><body>",
           "<h1>%s %s: API reference</h1>" % (esc(info["title"]), esc(info["version"])),
           prose(info.get("description"))]

    out.append('<nav><h2>Endpoints</h2><ul>')
    for method, path, op in operations:
        out.append('<li><a href="#%s">%s %s</a>: %s</li>'
                   % (anchor(method, path), esc(method), esc(path), esc(op.get("summary", ""))))
    out.append('</ul><p><a href="#headers">Request headers</a> · <a href="#examples">Examples</a> · '
               '<a href="#errors">Error codes</a> · <a href="#schemas">Bodies</a></p></nav>')

    out.append('<h2 id="headers">Request headers</h2><table class="fields"><tr><th>header</th><th>meaning</th></tr>')
    for scheme in doc["components"]["securitySchemes"].values():
        name = scheme.get("name") or "Authorization: Bearer &lt;key&gt;"
        out.append("<tr><td><code>%s</code></td><td>%s</td></tr>" % (name if "&lt;" in name else esc(name),
                                                                   prose(scheme.get("description"))))
    out.append("</table>")

    out.append('<h2 id="examples">Examples</h2><p>With the demo of <code>scripts/run</code>:</p>')
    for comment, command in examples:
        out.append(curl_block(comment, command))

    out.append('<h2>Endpoints</h2>')
    for method, path, op in operations:
        out.append(operation(api, method, path, op, examples))

    out.append('<h2 id="errors">Error codes</h2><p>An error body is <code>{"code": …, "message": …}</code>; '
               "<code>%1</code> and <code>%2</code> stand for details of the request.</p>")
    out.append('<table class="errors"><tr><th>code</th><th>name</th><th>status</th><th>message</th></tr>')
    for row in doc.get("x-error-codes", []):
        out.append('<tr id="error-%s"><td>%s</td><td><code>%s</code></td><td>%s</td><td>%s</td></tr>'
                   % (row["code"], row["code"], esc(row["name"]), row["status"], esc(row["message"])))
    out.append("</table>")

    out.append('<h2 id="schemas">Bodies</h2>')
    for name, schema in doc["components"]["schemas"].items():
        out.append('<section class="schema" id="schema-%s"><h3>%s</h3>' % (esc(name), esc(name)))
        out.append(prose(schema.get("description")))
        if schema.get("type") == "array" or "$ref" in schema:
            out.append("<p>%s</p>" % api.type_of(schema))
        out.append(api.fields_table(schema))
        out.append("</section>")
    out.append("</body></html>")
    return "\n".join(out) + "\n"


def anchor(method, path):
    return (method + path).lower().replace("/", "-").replace("{", "").replace("}", "")


def curl_block(comment, command):
    text = ("# " + comment + "\n" if comment else "") + command
    return '<pre class="curl">%s</pre>' % esc(text)


def operation(api, method, path, op, examples):
    out = ['<section class="endpoint" id="%s">' % anchor(method, path),
           '<h3><span class="method">%s</span> <span class="path">%s</span></h3>' % (esc(method), esc(path)),
           "<p><strong>%s</strong></p>" % inline(op.get("summary", "")), prose(op.get("description"))]

    params = [api.resolve(p) for p in op.get("parameters", [])]
    if params:
        out.append('<h4>Parameters</h4><table class="fields"><tr><th>name</th><th>in</th><th>meaning</th></tr>')
        for p in params:
            example = ' Example: <code>%s</code>.' % esc(p["example"]) if "example" in p else ""
            out.append("<tr><td><code>%s</code>%s</td><td>%s</td><td>%s%s</td></tr>"
                       % (esc(p["name"]), " (required)" if p.get("required") else "", esc(p["in"]),
                          inline(p.get("description", "")), example))
        out.append("</table>")

    if "requestBody" in op:
        body = api.resolve(op["requestBody"])
        out.append("<h4>Request body</h4>" + prose(body.get("description")))
        for media_type, media in body.get("content", {}).items():
            out.append("<p><code>Content-Type: %s</code>: %s</p>" % (esc(media_type), api.type_of(media["schema"])))
            out.append(api.fields_table(media["schema"]))
            out.append(example_block(media))

    out.append('<h4>Responses</h4><table class="responses"><tr><th>status</th><th>meaning</th>'
               "<th>headers</th><th>body</th></tr>")
    for status, response in op.get("responses", {}).items():
        response = api.resolve(response)
        headers = ", ".join("<code>%s</code>" % esc(h) for h in response.get("headers", {}))
        bodies = "; ".join("%s %s" % (esc(t), api.type_of(m["schema"]))
                           for t, m in response.get("content", {}).items() if "schema" in m)
        out.append("<tr><td>%s</td><td>%s</td><td>%s</td><td>%s</td></tr>"
                   % (esc(status), inline(response.get("description", "")), headers, bodies))
    out.append("</table>")
    for response in op.get("responses", {}).values():
        for media in api.resolve(response).get("content", {}).values():
            out.append(example_block(media))

    codes = op.get("x-error-codes", [])
    if codes:
        out.append('<h4>Error codes</h4><table class="errors"><tr><th>code</th><th>status</th><th>message</th></tr>')
        for code in codes:
            row = api.errors[code]
            out.append('<tr><td><a href="#error-%s">%s</a></td><td>%s</td><td>%s</td></tr>'
                       % (code, code, row["status"], esc(row["message"])))
        out.append("</table>")

    pattern = route_pattern(path)
    mine = [(c, cmd) for c, cmd in examples if curl_route(cmd)[0] == method and pattern.match(curl_route(cmd)[1])]
    if mine:
        out.append("<h4>Example</h4>")
        out.extend(curl_block(c, cmd) for c, cmd in mine)
    out.append("</section>")
    return "\n".join(out)


STYLE = """
body { font-family: sans-serif; max-width: 60em; margin: 1em auto; padding: 0 1em; line-height: 1.4; color: #222; }
h1 { border-bottom: 2px solid #246; }
h2 { margin-top: 2em; border-bottom: 1px solid #999; }
section.endpoint { border: 1px solid #ccd; border-radius: 4px; padding: 0 1em 1em; margin: 1.5em 0; }
.method { display: inline-block; min-width: 3.5em; padding: 0 .3em; background: #246; color: #fff; border-radius: 3px; text-align: center; }
.path { font-family: monospace; }
table { border-collapse: collapse; width: 100%; margin: .5em 0; }
th, td { border: 1px solid #ccc; padding: .2em .4em; text-align: left; vertical-align: top; }
th { background: #eef; }
td p { margin: 0; }
pre { background: #f4f4f4; padding: .5em; overflow-x: auto; white-space: pre-wrap; }
code { background: #f4f4f4; }
"""


def cpp_string(text):
    """A raw string literal; the delimiter cannot occur in the page."""
    delimiter = "apiref"
    assert (")" + delimiter + '"') not in text
    return 'R"%s(%s)%s"' % (delimiter, text, delimiter)


def main():
    yaml_path, readme_path, out_path = sys.argv[1:4]
    with open(yaml_path, encoding="utf-8") as f:
        api = ApiDoc(yaml.safe_load(f))
    with open(readme_path, encoding="utf-8") as f:
        readme = f.read()
    page = render(api, readme)
    routes = sorted(api.prefix + path for path in api.doc["paths"])
    with open(out_path, "w", encoding="utf-8") as f:
        f.write("// Made by host/apireference.py from docs/openapi.yaml and README.md; do not edit.\n")
        f.write('#include "apireference.h"\n\n')
        f.write("const std::string &ApiReference::page()\n{\n")
        f.write("    static const std::string text = %s;\n    return text;\n}\n\n" % cpp_string(page))
        f.write("const std::vector<std::string> &ApiReference::routes()\n{\n")
        f.write("    static const std::vector<std::string> list{%s};\n    return list;\n}\n"
                % ", ".join(json.dumps(r) for r in routes))


if __name__ == "__main__":
    main()
