// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/report/markup.h"

#include <glib.h>

#include <array>

namespace report {
namespace {

struct Escape {
  char character;
  const char* entity;
};

constexpr auto kEscapes = std::to_array<Escape>({
    {'&', "&amp;"},
    {'<', "&lt;"},
    {'>', "&gt;"},
    {'"', "&quot;"},
    {'\'', "&#39;"},
});

const char* entity_of(char character) {
  for (const Escape& row : kEscapes)
    if (row.character == character) return row.entity;
  return nullptr;
}

}  // namespace

void Markup::escape(std::string_view text) {
  // What broadcasters send is not always the UTF-8 it is taken for.
  g_autofree gchar* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
  for (const char* c = valid; *c != '\0'; c++) {
    if (const char* entity = entity_of(*c))
      out_ += entity;
    else if (static_cast<unsigned char>(*c) >= ' ')
      out_ += *c;
    else
      out_ += ' ';
  }
}

void Markup::start(const char* tag, Attributes attributes) {
  out_ += '<';
  out_ += tag;
  for (const Attribute& attribute : attributes) {
    if (attribute.value.empty()) continue;
    out_ += ' ';
    out_ += attribute.name;
    out_ += "=\"";
    escape(attribute.value);
    out_ += '"';
  }
}

Markup& Markup::open(const char* tag, Attributes attributes) {
  start(tag, attributes);
  out_ += '>';
  open_.push_back(tag);
  return *this;
}

Markup& Markup::close() {
  out_ += "</";
  out_ += open_.back();
  out_ += '>';
  open_.pop_back();
  return *this;
}

Markup& Markup::empty(const char* tag, Attributes attributes) {
  start(tag, attributes);
  out_ += "/>";
  return *this;
}

Markup& Markup::text(std::string_view text) {
  escape(text);
  return *this;
}

Markup& Markup::leaf(const char* tag, std::string_view content, Attributes attributes) {
  return open(tag, attributes).text(content).close();
}

Markup& Markup::raw(std::string_view ours) {
  out_ += ours;
  return *this;
}

}  // namespace report
