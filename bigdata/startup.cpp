#include <mutex>

#include "kcos/class.h"
#include "ki/ClassKcosRegistration.h"
#include "kv/bigdata.h"

void KVInitialize_libkvbigdata() {
  if (kcos::omGetKcosUsingUSM()) {
    bigdata::ki::registerAllClasses();
    return;
  }
  static std::once_flag registered;  // stays unset if the registration throws
  std::call_once(registered, bigdata::ki::registerAllClasses);
}

void KVTerminate_libkvbigdata() {}
