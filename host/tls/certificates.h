// The certificate that the server shows, and where it comes from: an operator's files, or an authority of
// this server's own in the data folder.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/store_mirror.h"
#include "host/base/wait.h"
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
    //
    // With a store, the authority is the one that hosts share there, and the folder has what was known of it
    // last: the first of them puts there what it has, and all take what is there.
    Certificates(std::string folder, std::string_view toldHost, std::shared_ptr<Store> shared = nullptr);

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
    // What hosts share: an authority, and the addresses of all that it is for.
    struct Shared {
        Store::Revision revision = 0; // 0: there is none
        std::vector<std::string> told;
        TlsPair authority;
    };
    [[nodiscard]] Shared ReadShared();
    [[nodiscard]] bool PutShared(const Shared& shared);
    [[nodiscard]] std::vector<TlsScope> ScopesFor(std::string_view toldHost, Shared& shared) const;
    void Use(const TlsPair& pair, Authority authority);
    // What a look has found good. The same is not looked at again within the hour: it takes milliseconds.
    struct Good {
        TlsPair authority;
        TlsPair server;
        std::vector<TlsScope> scopes;
        friend bool operator==(const Good&, const Good&) = default;
    };

    const bool m_own;
    const CertificateFiles m_files;
    const std::string m_folder;
    std::vector<std::string> m_names; // of this machine
    platform::FileStamp m_stamps[2];
    std::string m_complaint; // the last one
    Good m_good;
    Clock::time_point m_goodUntil;       // looked at anew then, since certificates age
    std::optional<StoreMirror> m_shared; // nothing: the authority is this server's alone
    // std::atomic of a shared pointer is not in every C++ library of today; these functions are.
    TlsContextPtr m_current;
    mutable std::mutex m_mutex; // the line below
    Authority m_authority;
};

} // namespace host
