// SPDX-License-Identifier: Apache-2.0
#include <KFLMessage/KFLXMLParser.h>

#include <array>
#include <atomic>
#include <new>

#include <KFLMessage/KFLNameTable.h>

namespace KFL {

namespace {

// Without a lock, so that a child that is forked meanwhile has nothing to wait for.
class Waiting {
 public:
  Waiting() = default;
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;
  ~Waiting() {
    for (std::atomic<XML_Parser>& place : places_)
      XML_ParserFree(place.exchange(nullptr));
  }

  // Null when there is none.
  XML_Parser take() {
    for (std::atomic<XML_Parser>& place : places_) {
      if (place.load(std::memory_order_relaxed) == nullptr) continue;
      if (XML_Parser const parser = place.exchange(nullptr, std::memory_order_acquire)) return parser;
    }
    return nullptr;
  }
  // Whether there was room for it.
  bool put(XML_Parser parser) {
    for (std::atomic<XML_Parser>& place : places_) {
      XML_Parser none = nullptr;
      if (place.compare_exchange_strong(none, parser, std::memory_order_release, std::memory_order_relaxed))
        return true;
    }
    return false;
  }

 private:
  std::array<std::atomic<XML_Parser>, 4> places_{};
};
Waiting waiting;

}  // namespace

KFLXMLParser::KFLXMLParser() : parser_(waiting.take()) {
  if (!parser_) parser_.reset(XML_ParserCreateNS(nullptr, kSeparator));
  if (!parser_ || XML_SetEncoding(parser_.get(), "UTF-8") != XML_STATUS_OK) throw std::bad_alloc();
  // Left to itself it asks the kernel for one.
  XML_SetHashSalt(parser_.get(), static_cast<unsigned long>(KFLNameTable::seed()));
}

void KFLXMLParser::keep() {
  if (XML_ParserReset(parser_.get(), nullptr) && waiting.put(parser_.get()))
    static_cast<void>(parser_.release());
  else
    parser_.reset();
}

}  // namespace KFL
