// SPDX-License-Identifier: Apache-2.0
// The bases of objects that count their references themselves and are held by boost::intrusive_ptr.
//
// An object begins with a count of zero; the first pointer that takes it in makes it one. The release that takes
// the last reference deletes the object, in the thread that made it, so such objects live on the heap only. Any
// thread may hold, copy and drop its own pointer to a shared object; one pointer is for one thread at a time.
#ifndef KFLCORE_KFLREFCOUNTER_H
#define KFLCORE_KFLREFCOUNTER_H

#include <atomic>
#include <cstdint>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <KFLCommon/KFLLanguage.h>

namespace KFL {

class KFLRefCounter {
 public:
  // Takes one reference.
  void addRef() const noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
  // Gives one reference back; after the last one the object is gone.
  void release() const noexcept;

 protected:
  KFLRefCounter() noexcept = default;
  // References belong to an object, not to its value: a copy begins with none, an assigned object keeps its own.
  KFLRefCounter(const KFLRefCounter&) noexcept {}
  KFLRefCounter& operator=(const KFLRefCounter&) noexcept { return *this; }
  virtual ~KFLRefCounter();

 private:
  mutable std::atomic<long> references_{0};
};

inline void intrusive_ptr_add_ref(const KFLRefCounter* object) noexcept {
  object->addRef();
}
inline void intrusive_ptr_release(const KFLRefCounter* object) noexcept {
  object->release();
}

// One that knows the process it belongs to, for objects that hold what a forked child must not use.
class KFLForkableRefCounter : public KFLRefCounter {
 public:
  // Whether this is a copy that a child got of its parent's object.
  bool isForked() const;

 protected:
  KFLForkableRefCounter();
  void belongHere();

 private:
  std::atomic<std::uint64_t>
      owner_;  // by the generation: processes of different namespaces may have one number
};

}  // namespace KFL

#endif
