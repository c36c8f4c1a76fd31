// A message's text without its namespaces, for tests of which elements stand where.
#ifndef TESTS_RESOURCES_PLAINTEXT_H
#define TESTS_RESOURCES_PLAINTEXT_H

#include <string>

#include <KFLMessage/KFLMessage.h>

inline std::string plainText(const KFL::KFLMessage& message) {
  std::string text = message.toString();
  for (std::size_t at = 0; (at = text.find(" xmlns=\"", at)) != std::string::npos;) {
    text.erase(at, text.find('"', at + 8) + 1 - at);
  }
  return text;
}

#endif
