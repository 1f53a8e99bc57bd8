#include "context/PellRequest.h"

namespace tovrek {

PellRequest& PellRequest::sharedInstance() {
  static PellRequest instance;
  return instance;
}

}  // namespace tovrek
