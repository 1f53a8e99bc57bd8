// The pipes between this process and a child.
#pragma once

#include "host/ProgressChannel.h"
#include "host/platform.h"
#include "host/unique_fd.h"

namespace tovrek {

struct Pipe {
  UniqueFd readEnd, writeEnd;

  bool open() {
    int fds[2];
    if (!openPipe(fds)) return false;
    readEnd = UniqueFd(fds[0]);
    writeEnd = UniqueFd(fds[1]);
    return true;
  }
};

// What this process and a child share.
struct Channels {
  Pipe input, output, errors;
  ProgressChannel progress;

  bool open() { return input.open() && output.open() && errors.open(); }
  // The child has its own copies.
  void closeChildEnds() {
    input.readEnd.close();
    output.writeEnd.close();
    errors.writeEnd.close();
    progress.closeChildEnd();
  }
  // Nobody reads or writes on: the child is not to wait for that.
  void closeOwnEnds() {
    input.writeEnd.close();
    output.readEnd.close();
    errors.readEnd.close();
  }
};

}  // namespace tovrek
