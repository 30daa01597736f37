// SPDX-License-Identifier: Apache-2.0
// Manifests, their signatures, and what is trusted: what is taken, and why all else is not.
#include <gtest/gtest.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>
#include <fstream>
#include <thread>

#include "bench.h"

namespace {

namespace fs = std::filesystem;
using engine::Reason;

constexpr char kDigest[] = "b6ba4e994e4cbf9706e6b2ab3ae952b7ce00d02a1e131a5a59be3286c4621671";

std::string head(const std::string& version = "2.1.0")
{
    return "product = \"Door camera\"\nversion = \"" + version + "\"\n";
}

std::string entry(const std::string& chip, const std::string& more = "", std::string digest = "")
{
    digest = digest.empty() ? kDigest : digest;
    return "[[firmware]]\nchip = \"" + chip + "\"\nimage = \"a.bin\"\nsha256 = \"" + digest +
           "\"\n" + more;
}

std::string repeated(const std::string& text, size_t count)
{
    std::string all;
    for (size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

void expect_refusal(const engine::Status& status, Reason reason, const std::string& message)
{
    EXPECT_EQ(status.reason(), reason) << message << ": " << status.message();
    EXPECT_NE(status.message().find(message), std::string::npos) << status.message();
}

TEST(EngineManifest, TextsThatAreNoneAreRefusedWithTheReason)
{
    const struct {
        std::string text;
        const char* message;
    } cases[] = {
        {"", "'product' is missing"},
        {"product = 1", "'product' must be a text"},
        {"product = \"\"", "'product' must be a text"},
        {"product = \"a\\u0007\"", "printable"},
        {"product", "line 1 is no TOML"},
        {head() + "produkt = 1", "there is no key 'produkt' here; did you mean 'product'?"},
        {head("2.1b"), "'version' must be numbers with dots between them, such as \"2.1.0\""},
        {head("1."), "not '1.'"},
        {head("1.2.3.4.5.6.7.8.9"), "'version'"},
        {head("99999999999"), "'version'"},
        {head(), "1 to 64 tables"},
        {head() + "firmware = 1", "1 to 64 tables"},
        {head() + "firmware = [1]", "a list of tables"},
        {head() + repeated(entry("RO"), 65), "1 to 64 tables"},
        {head() + entry("RO") + entry("RO"), "two images for the chip 'RO'"},
        {head() + entry("R"), "'chip' must be the name of a chip, or its signature"},
        {head() + entry("N/A"), "not 'N/A'"},
        {head() + entry("NY9999"), "not 'NY9999'"},
        {head() + entry("RO", "", "12"), "'sha256' must be 64 hexadecimal digits, not '12'"},
        {head() + entry("RO", "", std::string(64, 'g')), "64 hexadecimal digits"},
        {head() + entry("RO", "reports = \"0x10000\""), "'reports' must be a version"},
        {head() + entry("RO", "reports = 517"), "'reports' must be a text"},
        {head() + entry("RO", "mfi = \"m.bin\""), "'mfi' and 'mfi_sha256' belong together"},
        {head() + entry("RO", "mfi = \"/m.bin\""), "a path inside the manifest's folder"},
        {head() + entry("RO", "mfi = \"a/../../m.bin\""), "a path inside the manifest's folder"},
        {head() + entry("RO", "size = 1"), "there is no key 'size' here"},
        {"a = " + std::string(30000, '[') + std::string(30000, ']'), "is no TOML"},
        {"[a" + repeated(".a", 30000) + "]", "too many dots"},
        {head() + "# " + std::string(0x10000, 'x'), "too large"},
        {std::string(1000, '\0'), "is no TOML"},
    };
    for (const auto& c : cases)
        expect_refusal(engine::parse_manifest(c.text).status(), Reason::kWrongImage, c.message);
}

TEST(EngineManifest, WhatIsWrittenIsReadAsItWas)
{
    const engine::Manifest manifest{
        .product = "\"Door\" \\ camera \xC3\xA4",
        .version = "1.0",
        .firmware = {{"NY6410", "images/a.bin", kDigest, "0x0205", "m.bin", kDigest},
                     {"CB", "it's.bin", kDigest}}};
    const auto read = engine::parse_manifest(to_text(manifest));
    ASSERT_TRUE(read) << read.status().text();
    EXPECT_EQ(read->product, manifest.product);
    ASSERT_EQ(read->firmware.size(), 2U);
    EXPECT_EQ(read->firmware[0].reports, "0x0205");
    EXPECT_EQ(read->firmware[0].mfi, "m.bin");
    EXPECT_EQ(read->firmware[1].image, "it's.bin");
    EXPECT_EQ(to_text(*read), to_text(manifest));
}

// What Debian's minisign 0.11 has made.
constexpr char kMaker[] =
    "untrusted comment: minisign public key 75C57BC7151CAE2E\n"
    "RWQurhwVx3vFdd04xlqsTRFkf76NDlkYDft3l4yxSKh3P/mv+aO6vl49\n";
constexpr char kSigned[] =
    "product = \"Door camera\"\nversion = \"2.1.0\"\n\n[[firmware]]\nchip = \"RO\"\n"
    "image = \"rowan.bin\"\n"
    "sha256 = \"b6ba4e994e4cbf9706e6b2ab3ae952b7ce00d02a1e131a5a59be3286c4621671\"\n"
    "reports = \"0x0205\"\n";
constexpr char kHashed[] =
    "untrusted comment: signature from minisign secret key\n"
    "RUQurhwVx3vFde/ycFz+N+UanG3Cr+IzOO6M8elVo9rCLBPQKc0H3RuHjuyTBcqile5G6fAPptRAAx2ZLvYq3u5PRhU/"
    "v6MjFA8=\n"
    "trusted comment: Door camera 2.1.0\n"
    "WAImn7IDiXV30fD3lp5llzbBk3+JCirBUgcofY07iTOz+4OtZ0sHKwkaQqhD1iYa8+RKNwig9KM+SaiJr/DhCw==\n";
constexpr char kLegacy[] =
    "untrusted comment: signature from minisign secret key\n"
    "RWQurhwVx3vFdbc+OXJkFz1/n5833lj26U6NVxweruho8Vfi98KVVFLIBJe/ubu6QqCUxS/"
    "LsCNPzAVVsvGOUSBTFSBCwC/"
    "Mqwg=\n"
    "trusted comment: Door camera 2.1.0, legacy\n"
    "jlEOCx2uCbKtHcUX4b7jZitU8/fU72+XWbvmwgxm5sXX1R4xPlj2/6TchhQM5H5mnRaRP2C/OXmpNS4ooIWlBg==\n";

nyxus::Bytes as_bytes(std::string_view text)
{
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::string base64(const std::string& bytes)
{
    std::string text(sodium_base64_ENCODED_LEN(bytes.size(), sodium_base64_VARIANT_ORIGINAL), ' ');
    sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const uint8_t*>(bytes.data()),
                      bytes.size(), sodium_base64_VARIANT_ORIGINAL);
    text.pop_back(); // the terminator
    return text;
}

/// Who signs.
class Maker {
public:
    explicit Maker(std::string id) : id_(std::move(id))
    {
        crypto_sign_keypair(public_.data(), secret_.data());
    }

    std::string key() const
    {
        return "untrusted comment: a test's\n" +
               base64("Ed" + id_ + std::string(public_.begin(), public_.end())) + "\n";
    }
    std::string sign(const std::string& message, const std::string& kind = "ED") const
    {
        std::string digest(64, '\0');
        crypto_generichash(reinterpret_cast<uint8_t*>(digest.data()), digest.size(),
                           as_bytes(message).data(), message.size(), nullptr, 0);
        const std::string signature = raw(kind == "ED" ? digest : message);
        return "untrusted comment: any\n" + base64(kind + id_ + signature) +
               "\ntrusted comment: by a test\n" + base64(raw(signature + "by a test")) + "\n";
    }

private:
    std::string raw(const std::string& message) const
    {
        std::string signature(crypto_sign_BYTES, '\0');
        crypto_sign_detached(reinterpret_cast<uint8_t*>(signature.data()), nullptr,
                             as_bytes(message).data(), message.size(), secret_.data());
        return signature;
    }

    std::string id_;
    std::array<uint8_t, crypto_sign_PUBLICKEYBYTES> public_;
    std::array<uint8_t, crypto_sign_SECRETKEYBYTES> secret_;
};

std::string changed(std::string text, const std::string& from, const std::string& to)
{
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}

TEST(EngineSignature, OnlyThoseOfATrustedKeyOverTextAndCommentAreTaken)
{
    const Maker ours("ours....");
    const Maker other("other...");
    const Maker impostor("ours....");
    const std::vector<engine::PublicKey> keys = {*engine::parse_public_key(kMaker, "maker.pub"),
                                                 *engine::parse_public_key(ours.key(), "our.pub")};
    EXPECT_EQ(keys[0].id, "75C57BC7151CAE2E");
    const std::string text = kSigned;
    const struct {
        std::string signature;
        std::string text;
        const char* message; ///< nullptr: it is taken
    } cases[] = {
        {kHashed, text, nullptr},
        {kLegacy, text, nullptr},
        {ours.sign(text), text, nullptr},
        {ours.sign(text, "Ed"), text, nullptr},
        {changed(kHashed, "signature from", "anything by"), text, nullptr},
        {changed(kHashed, "\n", "\r\n"), text, nullptr},
        {kHashed, text + " ", "is not a signature of this text"},
        {kLegacy, changed(text, "2.1.0", "2.2.0"), "is not a signature of this text"},
        {impostor.sign(text), text, "is not a signature of this text"},
        {changed(kHashed, "2.1.0", "9.9.9"), text, "a comment that has been changed"},
        {other.sign(text), text, "by the key 2E2E2E726568746F, which is not trusted here"},
        {changed(kHashed, "RUQ", "RWQ"), text, "is not a signature of this text"},
        {changed(kHashed, "RUQ", "QUJ"), text, "is no signature of minisign"},
        {changed(kHashed, "trusted comment: D", "comment: D"), text, "is no signature"},
        {changed(kHashed, "jFA8=", "jFA8"), text, "is no signature"},
        {std::string(kHashed) + "more", text, "is no signature"},
        {std::string(kHashed).substr(0, 200), text, "is no signature"},
        {kMaker, text, "is no signature"},
        {"", text, "is no signature"},
        {std::string(5000, '\n'), text, "is no signature"},
    };
    for (const auto& c : cases) {
        const auto found = engine::verify_signature(as_bytes(c.text), c.signature, keys, "m.sig");
        if (c.message == nullptr) {
            EXPECT_TRUE(found) << found.status().text() << "\n" << c.signature;
        } else {
            expect_refusal(found.status(), Reason::kUntrusted, c.message);
        }
    }
    const std::string no_keys[] = {"", kHashed, changed(kMaker, "RWQ", "RUQ"),
                                   changed(kMaker, "l49", "l4"), std::string(kMaker) + kMaker};
    for (const std::string& key : no_keys)
        EXPECT_FALSE(engine::parse_public_key(key, "k.pub")) << key;
}

/// The folders of a machine, with a manifest.
struct Machine {
    Machine() { fs::create_directories(folders.user / "keys.d"); }

    void put(const std::string& file, const std::string& text) const
    {
        fs::create_directories((folder.path() / file).parent_path());
        std::ofstream(folder.path() / file, std::ios::binary) << text;
    }
    engine::Trust trust() const { return *engine::find_trust(folders); }
    engine::Result<engine::AcceptedManifest> load() const
    {
        return engine::load_manifest(folder.path() / "m.toml", trust());
    }

    TemporaryFolder folder;
    engine::TrustFolders folders{folder.path() / "etc", folder.path() / "user",
                                 folder.path() / "state"};
};

TEST(EngineTrust, AKeyMakesSignaturesNecessaryUnlessRootSaysOtherwise)
{
    const Maker maker("maker...");
    const std::string text = head() + entry("RO");
    for (const char* key_file : {"etc/keys.d/a.pub", "user/keys.d/a.pub"}) {
        const Machine machine;
        machine.put("m.toml", text);
        EXPECT_TRUE(machine.load());
        EXPECT_FALSE(machine.load()->signature);
        EXPECT_TRUE(machine.trust().check_bare_image("a.bin"));

        machine.put(key_file, maker.key());
        expect_refusal(machine.load().status(), Reason::kUntrusted, "No such file or directory");
        expect_refusal(machine.trust().check_bare_image("a.bin"), Reason::kUntrusted, "a.pub");
        machine.put("m.toml.minisig", maker.sign(text));
        ASSERT_TRUE(machine.load()) << machine.load().status().text();
        EXPECT_EQ(machine.load()->signature->comment, "by a test");

        machine.put("m.toml", text + "\n");
        expect_refusal(machine.load().status(), Reason::kUntrusted, "not a signature of this text");
        machine.put("etc/nyxus.toml", "allow_unsigned = true");
        EXPECT_TRUE(machine.load()) << machine.load().status().text();
        EXPECT_NE(machine.load()->unsigned_because.find("not a signature"), std::string::npos);
        EXPECT_TRUE(machine.trust().check_bare_image("a.bin"));
        machine.put("etc/nyxus.toml", "user_keys = false");
        EXPECT_EQ(machine.trust().keys.empty(), key_file[0] == 'u');
        // The user's word is not root's.
        fs::remove(machine.folder.path() / "etc/nyxus.toml");
        machine.put("user/nyxus.toml", "allow_unsigned = true");
        EXPECT_FALSE(machine.load());
    }
}

TEST(EngineTrust, WhatCannotBeReliedOnIsRefusedAndNotPassedOver)
{
    const Maker maker("maker...");
    const struct {
        const char* file;
        std::string text;
        const char* changed_path; ///< nullptr: none
        mode_t mode;
        const char* message;
    } cases[] = {
        {"etc/keys.d/a.pub", maker.key(), "etc/keys.d/a.pub", 0664, "other users may write it"},
        {"user/keys.d/a.pub", maker.key(), "user/keys.d/a.pub", 0666, "other users may write it"},
        {"etc/keys.d/a.pub", maker.key(), "etc/keys.d", 0775, "other users may write it"},
        {"etc/keys.d/a.pub", maker.key(), "etc", 0775, "other users may write it"},
        {"etc/nyxus.toml", "allow_unsigned = true", "etc/nyxus.toml", 0622, "may write it"},
        {"etc/keys.d/a.pub", "", nullptr, 0, "is no public key"},
        {"etc/keys.d/a.pub", std::string(5000, 'a'), nullptr, 0, "File too large"},
        {"etc/nyxus.toml", "allow_unsigned = 1", nullptr, 0, "must be true or false"},
        {"etc/nyxus.toml", "allow_unsinged = true", nullptr, 0, "did you mean 'allow_unsigned'?"},
        {"etc/nyxus.toml", "allow_unsigned", nullptr, 0, "no TOML"},
    };
    for (const auto& c : cases) {
        const Machine machine;
        machine.put(c.file, c.text);
        if (c.changed_path != nullptr)
            chmod((machine.folder.path() / c.changed_path).c_str(), c.mode);
        expect_refusal(engine::find_trust(machine.folders).status(), Reason::kUntrusted, c.message);
    }
    const Machine machine;
    machine.put("elsewhere", maker.key());
    const fs::path key = machine.folders.user / "keys.d/a.pub";
    fs::create_symlink(machine.folder.path() / "elsewhere", key);
    expect_refusal(engine::find_trust(machine.folders).status(), Reason::kUntrusted, "symbolic");
    fs::remove(key);
    mkfifo(key.c_str(), 0600);
    EXPECT_EQ(engine::find_trust(machine.folders).status().reason(), Reason::kUntrusted);
    fs::remove(key);
    machine.put("user/keys.d/a.pub", maker.key());
    machine.put("user/keys.d/README", "no key");
    EXPECT_EQ(machine.trust().keys.size(), 1U);
    if (chown(key.c_str(), 12345, static_cast<gid_t>(-1)) == 0) // only root can
        expect_refusal(engine::find_trust(machine.folders).status(), Reason::kUntrusted, "12345");
}

TEST(EngineTrust, AnOlderManifestThanTheNewestUsedOneIsADowngrade)
{
    const Machine machine;
    const auto manifest = [](const char* product, const char* version) {
        return engine::Manifest{product, version};
    };
    EXPECT_TRUE(check_newest(manifest("Door", "1.9"), machine.folders));
    EXPECT_TRUE(remember(manifest("Door", "1.10"), machine.folders));
    EXPECT_TRUE(remember(manifest("Gate", "0.1"), machine.folders));
    EXPECT_TRUE(check_newest(manifest("Door", "1.10.0"), machine.folders));
    EXPECT_TRUE(check_newest(manifest("Door", "2"), machine.folders));
    expect_refusal(check_newest(manifest("Door", "1.9"), machine.folders), Reason::kDowngrade,
                   "is version 1.9 of 'Door', but 1.10 has been used already");
    EXPECT_TRUE(remember(manifest("Door", "1.9"), machine.folders)); // that was asked for
    EXPECT_FALSE(check_newest(manifest("Door", "1.9"), machine.folders));
    EXPECT_TRUE(check_newest(manifest("Gate", "0.1"), machine.folders));
    machine.put("state/manifests/accepted.json", "[");
    expect_refusal(check_newest(manifest("Door", "2"), machine.folders), Reason::kFile, "accepted");
    EXPECT_FALSE(remember(manifest("Door", "2"), machine.folders));
}

std::vector<uint8_t> rowan_image()
{
    return image_bytes(*sim::find_model("rowan-spi"));
}

std::string text_of(const std::vector<uint8_t>& bytes)
{
    return {bytes.begin(), bytes.end()};
}

TEST(EnginePinned, ImagesAreThoseOfTheManifestAndInsideItsFolder)
{
    const Machine machine;
    const auto load = [&](const std::string& image, const std::string& chip = "RO") {
        const std::string good = engine::describe_images(machine.folder.path() / "in",
                                                         machine.folder.path() / "in/a.bin")
                                     ->sha256;
        machine.put("in/m.toml",
                    head() + changed(entry(chip, "", good), "\"a.bin\"", '"' + image + '"'));
        const auto manifest = engine::load_manifest(machine.folder.path() / "in/m.toml", {});
        return manifest ? engine::load_images(*manifest) : manifest.status();
    };
    machine.put("in/a.bin", text_of(rowan_image()));
    machine.put("in/sub/a.bin", text_of(rowan_image()));
    machine.put("in/other.bin", text_of(rowan_image()) + "x");
    machine.put("out.bin", text_of(rowan_image()));
    const fs::path in = machine.folder.path() / "in";
    fs::create_symlink("sub/a.bin", in / "link");
    fs::create_symlink("../out.bin", in / "link_out");
    fs::create_symlink("..", in / "folder_out");
    fs::create_symlink("/dev/zero", in / "zero");
    fs::create_symlink("loop", in / "loop");
    mkfifo((in / "fifo").c_str(), 0600);
    for (const char* image : {"a.bin", "sub/a.bin", "./a.bin", "link"}) {
        const auto loaded = load(image);
        ASSERT_TRUE(loaded) << loaded.status().text();
        EXPECT_EQ(loaded->at(0).images.firmware.bytes().size(), rowan_image().size());
    }
    const struct {
        const char* image;
        const char* chip;
        Reason reason;
        const char* message;
    } cases[] = {
        {"other.bin", "RO", Reason::kWrongImage, "is not the image that is meant"},
        {"link_out", "RO", Reason::kWrongImage, "outside the folder of the manifest"},
        {"folder_out/out.bin", "RO", Reason::kWrongImage, "outside the folder of the manifest"},
        {"zero", "RO", Reason::kWrongImage, "outside the folder of the manifest"},
        {"fifo", "RO", Reason::kFile, "not a plain file"},
        {"sub", "RO", Reason::kFile, "it is a folder"},
        {"loop", "RO", Reason::kFile, "symbolic links"},
        {"missing.bin", "RO", Reason::kFile, "No such file"},
        {"a.bin", "NY7701", Reason::kWrongImage, "is not for the chip 'NY7701'"},
        {"a.bin", "CD", Reason::kWrongImage, "is not for the chip 'CD'"},
    };
    for (const auto& c : cases)
        expect_refusal(load(c.image, c.chip).status(), c.reason, c.message);
    EXPECT_FALSE(engine::describe_images(in, machine.folder.path() / "out.bin"));
    for (const char* path : {"/dev/zero", "/dev/null", "."})
        EXPECT_EQ(engine::load_manifest(path, {}).status().reason(), Reason::kFile) << path;
}

/// Somebody writes two versions in turn, and in place; only what a signature covers is ever used.
TEST(EnginePinned, AManifestThatChangesMeanwhileIsOneThatWasSignedOrNone)
{
    const Machine machine;
    const Maker maker("maker...");
    machine.put("user/keys.d/a.pub", maker.key());
    const std::string texts[] = {head("1") + entry("RO"), head("2") + entry("CB") + entry("WI")};
    machine.put("m.toml", texts[0]);
    machine.put("m.toml.minisig", maker.sign(texts[0]));
    std::jthread writer([&](const std::stop_token& over) {
        for (size_t i = 0; !over.stop_requested(); ++i) {
            machine.put("m.toml", texts[i % 2]);
            machine.put("m.toml.minisig", maker.sign(texts[i % 2]));
        }
    });
    for (int i = 0; i < 300; ++i) {
        if (const auto loaded = machine.load()) {
            EXPECT_EQ(loaded->firmware.size(), loaded->version == "1" ? 1U : 2U);
            EXPECT_TRUE(loaded->signature);
        }
    }
}

TEST(EnginePinned, ACameraGetsWhatNamesItMostExactlyAndNothingOlderUnasked)
{
    Bench bench("rowan-spi"); // NY6410, RO2-1.0.12, runs 0x0100
    auto camera = bench.open();
    const auto images = [](const char* chip, const char* reports = "") {
        engine::ChipImages made{chip, images_for("rowan-spi")};
        made.images.reports = reports;
        return made;
    };
    const std::vector<engine::ChipImages> all = {images("RO"), images("CB"), images("NY6410"),
                                                 images("RO2"), images("NY6400")};
    const auto chip_of = [&](const std::vector<engine::ChipImages>& some) {
        const auto chosen = choose_images(some, camera, false);
        return chosen ? (*chosen)->chip : chosen.status().message();
    };
    EXPECT_EQ(chip_of(all), "NY6410");
    EXPECT_EQ(chip_of({all[0], all[1], all[3]}), "RO2");
    EXPECT_EQ(chip_of({all[1], all[0]}), "RO");
    EXPECT_EQ(chip_of({images("")}), "");
    EXPECT_EQ(chip_of({all[1], all[4]}),
              "the manifest has no image for the chip NY6410; nothing was written");

    EXPECT_EQ(images("RO").images.version(), "0x0205"); // what the image says of itself
    const struct {
        const char* reports;
        bool is_downgrade;
        bool is_running;
    } cases[] = {
        {"0x0205", false, false}, {"0x0100", false, true}, {"0x00FF", true, false},
        {"0xff", true, false},    {"", false, false},
    };
    for (const auto& c : cases) {
        const std::vector<engine::ChipImages> one = {images("RO", c.reports)};
        EXPECT_TRUE(choose_images(one, camera, true));
        EXPECT_EQ(choose_images(one, camera, false).status().reason(),
                  c.is_downgrade ? Reason::kDowngrade : Reason::kNone);
        EXPECT_EQ(bool(check_reports(camera, one[0].images)), c.is_running) << c.reports;
    }
}

} // namespace
