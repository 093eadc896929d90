// SPDX-License-Identifier: Apache-2.0
#include "report/page.h"

#include <map>

#include "report/page_parts.h"

namespace {

std::string html_text(std::string_view text) {
  std::string html;
  for (const char c : text) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      default:
        html += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    }
  }
  return html;
}

}  // namespace

bool has_page() {
  return !kPlotLibrary.empty();
}

void write_page(const std::string& title, const std::function<void()>& data,
                const std::function<void(std::string_view)>& take) {
  const std::map<std::string_view, std::function<void()>> parts = {
      {"TITLE", [&] { take(html_text(title)); }},
      {"STYLE", [&] { take(kPageStyle); }},
      {"DATA", data},
      {"LIBRARY", [&] { take(kPlotLibrary); }},
      {"SCRIPT", [&] { take(kPageScript); }},
      {"LICENCES", [&] { take(html_text(kPlotLicences)); }},
      {"LIBRARY_VERSION", [&] { take(html_text(kPlotLibraryVersion)); }},
      {"VERSION", [&] { take(TAVO_VERSION); }}};
  std::string_view rest = kPageTemplate;
  for (;;) {
    const size_t begin = rest.find("{{");
    take(rest.substr(0, begin));
    if (begin == std::string_view::npos) {
      return;
    }
    const size_t end = rest.find("}}", begin);
    parts.at(rest.substr(begin + 2, end - begin - 2))();
    rest.remove_prefix(end + 2);
  }
}
