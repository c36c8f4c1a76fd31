// SPDX-License-Identifier: Apache-2.0
#include <KFLCommon/KFLError.h>

#include <pthread.h>

#include <cstdarg>
#include <utility>

#include <KFLCommon/KFLLock.h>

#include "KFLPrint.h"

namespace KFL {

namespace {

struct ThreadText {
  std::string text;
  ThreadText* next = nullptr;
  ThreadText** link = nullptr;
};

// A thread_local with a destructor would keep the library loaded until every thread that ever used it has
// ended. So a thread holds a plain pointer, a thread-specific key frees its text, and the list frees the
// others' at unload.
thread_local ThreadText* threadText = nullptr;
thread_local std::size_t textsOfThread = 0;

constinit KFLLock textsLock;
const KFLForkWaits<textsLock> forkWaits;

class TextList {
 public:
  TextList() : usable_(pthread_key_create(&key_, &TextList::endOfThread) == 0) {}
  ~TextList() {
    if (usable_) pthread_key_delete(key_);
    const KFLLockGuard guard(textsLock);
    while (first_ != nullptr)
      delete std::exchange(first_, first_->next);
    threadText = nullptr;
    usable_ = false;
  }
  TextList(const TextList&) = delete;
  TextList& operator=(const TextList&) = delete;

  std::string& ofThisThread() {
    if (threadText == nullptr) threadText = add();
    return threadText->text;
  }

 private:
  ThreadText* add();
  static void endOfThread(void* ended);

  pthread_key_t key_{};
  bool usable_;
  ThreadText* first_ = nullptr;
};

TextList texts;

ThreadText* TextList::add() {
  auto* const text = new ThreadText;
  if (!usable_) return text;
  pthread_setspecific(key_, text);
  const KFLLockGuard guard(textsLock);
  text->next = first_;
  text->link = &first_;
  if (first_ != nullptr) first_->link = &text->next;
  first_ = text;
  return text;
}

void TextList::endOfThread(void* ended) {
  auto* const text = static_cast<ThreadText*>(ended);
  threadText = nullptr;
  const KFLLockGuard guard(textsLock);
  *text->link = text->next;
  if (text->next != nullptr) text->next->link = text->link;
  delete text;
}

}  // namespace

void setErrorMessage(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = printText(format, arguments);
  va_end(arguments);
  texts.ofThisThread() = std::move(text);
  ++textsOfThread;
}

std::string getErrorMessage() {
  return threadText == nullptr ? std::string() : threadText->text;
}

std::size_t countErrorMessages() {
  return textsOfThread;
}

}  // namespace KFL
