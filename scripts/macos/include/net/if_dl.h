// Link-layer addresses as macOS gives them.
#pragma once

#include <sys/socket.h>

#define AF_LINK 18

struct sockaddr_dl {
  unsigned char sdl_len;
  unsigned char sdl_family;
  unsigned short sdl_index;
  unsigned char sdl_type;
  unsigned char sdl_nlen;  // of the name, which the address stands behind
  unsigned char sdl_alen;
  unsigned char sdl_slen;
  char sdl_data[12];
};

#define LLADDR(address) ((address)->sdl_data + (address)->sdl_nlen)
