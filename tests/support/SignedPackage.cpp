#include "support/SignedPackage.h"

#include <memory>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <zlib.h>

#include "support/BinaryPlist.h"

namespace ymtest {
namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

std::string der(X509 *certificate)
{
    unsigned char *bytes = nullptr;
    int length = i2d_X509(certificate, &bytes);
    std::string result(reinterpret_cast<char *>(bytes), static_cast<size_t>(length));
    OPENSSL_free(bytes);
    return result;
}

}  // namespace

std::vector<std::string> makeCertificateChain(const std::vector<std::string> &commonNames)
{
    std::vector<Key> keys;
    for (size_t i = 0; i < commonNames.size(); ++i)
        keys.emplace_back(EVP_EC_gen("P-256"), EVP_PKEY_free);
    std::vector<std::string> chain;
    for (size_t i = 0; i < commonNames.size(); ++i) {
        size_t issuer = i + 1 < commonNames.size() ? i + 1 : i;
        X509 *certificate = X509_new();
        X509_set_version(certificate, 2);
        ASN1_INTEGER_set(X509_get_serialNumber(certificate), static_cast<long>(i + 1));
        X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
        X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
        X509_set_pubkey(certificate, keys[i].get());
        X509_NAME *subject = X509_get_subject_name(certificate);
        X509_NAME_add_entry_by_txt(subject, "O", MBSTRING_UTF8, reinterpret_cast<const unsigned char *>("Test"), -1, -1, 0);
        if (!commonNames[i].empty())
            X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char *>(commonNames[i].c_str()), -1, -1, 0);
        X509_NAME *issuerName = X509_NAME_new();
        X509_NAME_add_entry_by_txt(issuerName, commonNames[issuer].empty() ? "O" : "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char *>(commonNames[issuer].empty() ? "Test"
                                                                                                       : commonNames[issuer].c_str()),
                                   -1, -1, 0);
        X509_set_issuer_name(certificate, issuerName);
        X509_NAME_free(issuerName);
        X509_sign(certificate, keys[issuer].get(), EVP_sha256());
        chain.push_back(der(certificate));
        X509_free(certificate);
    }
    return chain;
}

std::string base64(const std::string &bytes)
{
    std::string encoded(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    int length = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(encoded.data()),
                                 reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<int>(bytes.size()));
    encoded.resize(static_cast<size_t>(length));
    for (size_t at = 76; at < encoded.size(); at += 77)
        encoded.insert(at, "\n");
    return encoded;
}

std::string makeXarArchive(const std::vector<XarSignature> &signatures, bool compress)
{
    std::string toc = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<xar>\n <toc>\n"
                      "  <checksum style=\"sha1\"><offset>0</offset><size>20</size></checksum>\n"
                      "  <creation-time>2026-11-21T00:00:00</creation-time>\n";
    size_t offset = 20;
    for (const XarSignature &signature : signatures) {
        toc += "  <" + signature.element + " style=\"" + signature.style + "\"><offset>" + std::to_string(offset) +
               "</offset><size>256</size>\n   <KeyInfo xmlns=\"http://www.w3.org/2000/09/xmldsig#\"><X509Data>\n";
        for (const std::string &text : signature.certificateTexts)
            toc += "    <X509Certificate>" + text + "</X509Certificate>\n";
        toc += "   </X509Data></KeyInfo>\n  </" + signature.element + ">\n";
        offset += 256;
    }
    toc += "  <file id=\"1\"><name>Distribution</name><type>file</type></file>\n </toc>\n</xar>\n";

    std::string stored = toc;
    if (compress) {
        uLongf size = compressBound(toc.size());
        stored.assign(size, '\0');
        compress2(reinterpret_cast<Bytef *>(stored.data()), &size, reinterpret_cast<const Bytef *>(toc.data()), toc.size(), 9);
        stored.resize(size);
    }
    std::string archive = "xar!";
    appendBigEndian(archive, 28, 2);             // header size
    appendBigEndian(archive, 1, 2);              // version
    appendBigEndian(archive, stored.size(), 8);  // table of contents, compressed
    appendBigEndian(archive, toc.size(), 8);     // and uncompressed
    appendBigEndian(archive, 1, 4);              // sha1
    archive += stored;
    archive += std::string(offset, '\x5a');      // the heap: checksum and signature bytes
    return archive;
}

}  // namespace ymtest
