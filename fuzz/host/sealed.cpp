// What another program puts in the place of a sealed text: nothing opens but what was sealed.

#include "fuzz/Fuzz.h"
#include "host/cluster/seal.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace host::cluster;
    static const auto sealer = std::make_shared<const Sealer>(Secrets::Of(std::string(32, 's')), "node");
    static const BucketSeal bucket(sealer, "bucket", Secret("names"));
    static const std::string sealed = bucket.Seal({1, false, "name", "some text"});
    const std::string key = bucket.KeyOf("name");
    const std::string_view input = AsText(data, size);
    Require(!bucket.Open(key, input));
    // The input as a change of one that opens: where it begins, and what it does to the bytes from there on.
    std::string bent = sealed;
    if (size > 0) {
        for (std::size_t i = 1, at = data[0] % bent.size(); i < size && at < bent.size(); ++i, ++at)
            bent[at] = static_cast<char>(bent[at] ^ data[i]);
    }
    Require(bucket.Open(key, bent).has_value() == (bent == sealed));
    // As it would be read if it were sealed.
    (void)bucket.Open(key, sealer->Seal({SealedFor::Kind::Value, "bucket", key}, input));
    return 0;
}
