// SPDX-License-Identifier: Apache-2.0
// The bandwidth that one traffic class may use on one device of the node, in kilobits per second:
// `eth0:1:1024`.
//
// The text is the value: it is kept as it stands, also when it is malformed, so that nothing in a
// configuration is lost. A plain value, compared and ordered by its text.
#ifndef KFLFUNCTIONALITY_KFLINTERFACERATE_H
#define KFLFUNCTIONALITY_KFLINTERFACERATE_H

#include <compare>
#include <string>

#include <KFLMessage/KFLRecordFields.h>

namespace KFL {

class KFLInterfaceRate {
 public:
  using Writer = KFLTextWriter<KFLInterfaceRate>;
  // An empty element is no rate: reading it fails.
  using Reader = KFLTextReader<KFLInterfaceRate>;

  KFLInterfaceRate() = default;
  explicit KFLInterfaceRate(const std::string& text) : text_(text) {}
  KFLInterfaceRate(const std::string& device, int classID, long long rate);

  // Keeps the text, whatever it is. 0, or -1 with an error text and the value as it was for the empty text.
  int fromString(const std::string& text);
  // The text as it was written: `DEVICE:CLASS:RATE`.
  const std::string& toString() const { return text_; }

  // Whether the text has its three parts: a device, which may be `*` for all, and two numbers from 0 on.
  bool isValid() const;
  // The parts of the text; empty and -1 when it is not valid.
  std::string getDevice() const;
  int getClassID() const;
  long long getRate() const;

  friend bool operator==(const KFLInterfaceRate&, const KFLInterfaceRate&) = default;
  friend auto operator<=>(const KFLInterfaceRate&, const KFLInterfaceRate&) = default;

 private:
  std::string text_;
};

}  // namespace KFL

#endif
