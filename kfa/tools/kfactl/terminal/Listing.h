// SPDX-License-Identifier: Apache-2.0
// A result of many rows, each a row of a table and a document, sorted and printed in the format asked for.
#ifndef KFACTL_LISTING_H
#define KFACTL_LISTING_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "terminal/Document.h"

namespace CLI {
class App;
}

namespace kfactl {

class Listing {
 public:
  explicit Listing(std::vector<std::string> headings) : headings_(std::move(headings)) {}

  void add(std::vector<std::string> cells, Document document);
  // A row that has no place in a table.
  void add(Document document) { rows_.push_back({{}, std::move(document)}); }

  // --sort and --no-header.
  struct Options {
    std::string sort;
    bool noHeader = false;

    void declare(CLI::App& app);
  };
  // Prints the rows; in XML the root element is named `root` and holds an `item` for each.
  void print(Session& session, const Options& options, const char* root, const char* item);

 private:
  struct Row {
    std::vector<std::string> cells;
    Document document;
  };

  void sortBy(const std::string& heading);

  std::vector<std::string> headings_;
  std::vector<Row> rows_;
};

}  // namespace kfactl

#endif
