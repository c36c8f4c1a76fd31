// SPDX-License-Identifier: Apache-2.0
// A message: one tree of elements with its XML text form.
//
// The message owns its tree; cursors (KFLMessageIterator) and configurations made from one share the tree and keep
// it alive. Any number of threads may read a tree, or one change it. Memory that runs out passes through as
// std::bad_alloc, with the message as before. The text form is XML 1.0 in UTF-8: docs/formats.md has the rules.
#ifndef KFLMESSAGE_KFLMESSAGE_H
#define KFLMESSAGE_KFLMESSAGE_H

#include <cstddef>
#include <string>
#include <string_view>

#include <KFLMessage/KFLMessageIterator.h>

namespace KFL {

class KFLMessage {
 public:
  // A message with an empty root element. The first record that is written into it gives the root its namespace, and
  // its name: that of its type tag without "Type", or else of its class ("ubc" for KFAUbc).
  KFLMessage();
  // The same with a name. KFLMessageIterator::setName() gives it name and namespace for good.
  explicit KFLMessage(const std::string& rootName);
  // A copy has a tree of its own; a moved-from message has an empty one.
  KFLMessage(const KFLMessage& other);
  KFLMessage(KFLMessage&& other) noexcept;
  KFLMessage& operator=(const KFLMessage& other);
  KFLMessage& operator=(KFLMessage&& other) noexcept;
  ~KFLMessage();

  // Replaces the tree by the one that the text describes. 0, or -1 with an error text that names line and column;
  // then the message is as it was. Cursors on the former tree stay valid and keep it.
  int parse(const std::string& xml);

  // The XML text of the tree; empty, with an error text that names the element, when a text or name in the tree
  // cannot stand in XML (not UTF-8, or a control character).
  std::string toString() const;

  // The same for people: elements that hold elements only are broken into lines, two spaces a level.
  std::string toPrettyString() const;

  // The compact text into `out`, replacing its content: 0, or -1 with an error text and `out` empty; empty too where
  // memory runs out.
  int print(std::string& out) const;

  // The packed form, which programs read in a fraction of the time that the text takes; for what is not kept. Refuses what
  // print() refuses, and as that does.
  int pack(std::string& out) const;
  // Replaces the tree by the one of a packed form: 0, or -1 with an error text that names the byte; then the message is as
  // it was. What is taken can be printed.
  int unpack(std::string_view packed);
  // Whether it is a packed form, sound or not, and no text.
  static bool isPacked(std::string_view bytes);

  // A cursor on the root element; that of a constant message only reads.
  KFLMessageIterator getIterator();
  const KFLMessageIterator getIterator() const;  // NOLINT(readability-const-return-type)

  // The longest text, in bytes, that parse() and unpack() take; 256 MiB unless set. Process-wide.
  static void setSizeLimit(std::size_t bytes);
  static std::size_t getSizeLimit();

  // Bytes that the tree has taken from the heap.
  std::size_t memoryUsed() const;

 private:
  KFLMessageTree& tree() const;

  mutable boost::intrusive_ptr<KFLMessageTree> tree_;  // made when it is first needed
};

}  // namespace KFL

#endif
