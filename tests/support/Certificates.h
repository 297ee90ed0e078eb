// Certificate chains for the signature tests, made with OpenSSL: each certificate is signed by
// the one after it, and the last signs itself.
#pragma once

#include <string>
#include <vector>

namespace ymtest {

// DER certificates with the given subject common names, leaf first.
std::vector<std::string> makeCertificateChain(const std::vector<std::string> &commonNames);

}  // namespace ymtest
