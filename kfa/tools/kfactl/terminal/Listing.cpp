// SPDX-License-Identifier: Apache-2.0
#include "terminal/Listing.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include <CLI/CLI.hpp>

#include <KFLCommon/KFLText.h>

#include "terminal/Hint.h"
#include "terminal/Session.h"
#include "terminal/Trouble.h"

namespace kfactl {

namespace {

// Numbers by size and before texts.
bool comesBefore(const std::string& a, const std::string& b) {
  double left = 0;
  double right = 0;
  const bool isNumber = KFL::parseDouble(a, left) == 0;
  const bool isOther = KFL::parseDouble(b, right) == 0;
  if (isNumber && isOther) return left < right;
  return isNumber != isOther ? isNumber : a < b;
}

}  // namespace

void Listing::Options::declare(CLI::App& app) {
  app.add_option("--sort", sort, "Sort by the column of this heading")->type_name("COLUMN");
  app.add_flag("--no-header", noHeader, "Print no headings");
}

void Listing::add(std::vector<std::string> cells, Document document) {
  rows_.push_back({std::move(cells), std::move(document)});
}

void Listing::sortBy(const std::string& heading) {
  if (heading.empty()) return;
  const auto found = std::find_if(headings_.begin(), headings_.end(), [&](const std::string& name) {
    return KFL::equalsIgnoreCase(name, heading);
  });
  if (found == headings_.end())
    throw Trouble("--sort: there is no column '" + heading + "'; " + hintFor(heading, headings_));
  const auto column = static_cast<std::size_t>(found - headings_.begin());
  std::stable_sort(rows_.begin(), rows_.end(), [column](const Row& a, const Row& b) {
    if (a.cells.empty() || b.cells.empty()) return a.cells.size() > b.cells.size();
    return comesBefore(a.cells[column], b.cells[column]);
  });
}

void Listing::print(Session& session, const Options& options, const char* root, const char* item) {
  sortBy(options.sort);
  if (session.format() == Format::Table) {
    Table table(headings_);
    for (const Row& row : rows_)
      if (!row.cells.empty()) table.add(row.cells);
    return table.print(session.out(), !options.noHeader);
  }
  Document document = Document::array();
  for (Row& row : rows_)
    document.push_back(std::move(row.document));
  printDocument(session, document, root, item);
}

}  // namespace kfactl
