// The commands of the program, one function each. All take the words after the command's name and
// answer the exit status; kUsage makes the caller print how the command is used.
#pragma once

#include <string>
#include <vector>

#include "host/Streams.h"

namespace tovrek::security {

using Words = std::vector<std::string>;
using Command = int (*)(const Words& words, const Streams& streams);

int addCertificates(const Words& words, const Streams& streams);
int addTrustedCertificate(const Words& words, const Streams& streams);
int cms(const Words& words, const Streams& streams);
int deleteCertificate(const Words& words, const Streams& streams);
int deleteIdentity(const Words& words, const Streams& streams);
int dumpKeychain(const Words& words, const Streams& streams);
int exportItems(const Words& words, const Streams& streams);
int findIdentity(const Words& words, const Streams& streams);
int findCertificate(const Words& words, const Streams& streams);
int importItems(const Words& words, const Streams& streams);
int listKeychains(const Words& words, const Streams& streams);
int defaultKeychain(const Words& words, const Streams& streams);
int createKeychain(const Words& words, const Streams& streams);
int deleteKeychain(const Words& words, const Streams& streams);
int lockKeychain(const Words& words, const Streams& streams);
int unlockKeychain(const Words& words, const Streams& streams);
int setKeychainPassword(const Words& words, const Streams& streams);
int setKeychainSettings(const Words& words, const Streams& streams);
int setKeyPartitionList(const Words& words, const Streams& streams);
int showKeychainInfo(const Words& words, const Streams& streams);
int loginKeychain(const Words& words, const Streams& streams);
int verifyCertificate(const Words& words, const Streams& streams);

}  // namespace tovrek::security
