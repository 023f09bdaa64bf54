// The certificate that the server shows, and where it comes from: an operator's files, or an authority of
// this server's own in the data folder.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/tls/authority.h"
#include "host/tls/context.h"
#include "platform/files.h"

namespace host {

struct CertificateFiles {
    std::string certificate; // PEM
    std::string key;
};

class Certificates {
public:
    // The operator's own pair. Throws StartError when it is not usable.
    explicit Certificates(CertificateFiles files);
    // Those of the folder, which is made where it is missing. `toldHost` is what phones are told to connect
    // to. Throws StartError when they can be neither read nor made.
    Certificates(std::string folder, std::string_view toldHost);

    // For the next connection. Any thread.
    [[nodiscard]] TlsContextPtr Current() const { return std::atomic_load(&m_current); }

    // Looks whether the files, or this machine's names and addresses, are other ones now; `again`: reads the
    // files whatever their times say. What cannot be used leaves the former certificate in its place, and the
    // log says so once. One thread.
    void Refresh(std::string_view toldHost, bool again = false);

    // What people are told of the authority.
    struct Authority {
        std::string certificate; // PEM; empty where the operator's pair has one of its own
        std::string fingerprint; // of that, or of the operator's certificate
        bool replaced = false;   // it took the place of another one: devices have to trust again
    };
    [[nodiscard]] Authority GetAuthority() const; // any thread

private:
    void LoadOperators();
    void LoadOwn(std::string_view toldHost);
    void Use(const TlsPair& pair, Authority authority);

    const bool m_own;
    const CertificateFiles m_files;
    const std::string m_folder;
    std::vector<std::string> m_names; // of this machine
    platform::FileStamp m_stamps[2];
    std::string m_complaint; // the last one
    // std::atomic of a shared pointer is not in every C++ library of today; these functions are.
    TlsContextPtr m_current;
    mutable std::mutex m_mutex; // the line below
    Authority m_authority;
};

} // namespace host
