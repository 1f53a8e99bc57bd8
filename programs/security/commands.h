// The commands of the program, one function each. All take the words after the command's name and
// answer the exit status; kUsage makes the caller print how the command is used.
#pragma once

#include <string>
#include <vector>

namespace tovrek::security {

using Arguments = std::vector<std::string>;

int addCertificates(const Arguments& arguments);
int addTrustedCertificate(const Arguments& arguments);
int cms(const Arguments& arguments);
int deleteCertificate(const Arguments& arguments);
int deleteIdentity(const Arguments& arguments);
int dumpKeychain(const Arguments& arguments);
int exportItems(const Arguments& arguments);
int findIdentity(const Arguments& arguments);
int findCertificate(const Arguments& arguments);
int importItems(const Arguments& arguments);
int listKeychains(const Arguments& arguments);
int defaultKeychain(const Arguments& arguments);
int createKeychain(const Arguments& arguments);
int deleteKeychain(const Arguments& arguments);
int lockKeychain(const Arguments& arguments);
int unlockKeychain(const Arguments& arguments);
int setKeychainPassword(const Arguments& arguments);
int setKeychainSettings(const Arguments& arguments);
int setKeyPartitionList(const Arguments& arguments);
int showKeychainInfo(const Arguments& arguments);
int loginKeychain(const Arguments& arguments);
int verifyCertificate(const Arguments& arguments);

}  // namespace tovrek::security
