#include "VarkPlatform/Linux/Secrets/FileSecretStore.h"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

const SecretName mine{"dev.vark.mac", "device-token"};
const SecretName other{"dev.vark.mac", "other"};

TEST(FileSecretStore, KeepsSecretsForItsOwnerAlone) {
    const TemporaryFolder folder;
    const std::filesystem::path file = folder / "deep/secrets.json";
    FileSecretStore store(file);
    EXPECT_EQ(store.update(mine, "x"), SecretStatus::notFound);
    EXPECT_EQ(store.add(mine, "Label", "one"), SecretStatus::done);
    EXPECT_EQ(store.add(other, "", "two \"\xC3\xA9\""), SecretStatus::done);
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(store.update(mine, "three"), SecretStatus::done);
    EXPECT_EQ(store.update(mine, "\xff"), SecretStatus::notText);
    EXPECT_EQ(FileSecretStore(file).find(mine).bytes, "three");
    EXPECT_EQ(store.remove(mine), SecretStatus::done);
    EXPECT_EQ(store.find(mine).status, SecretStatus::notFound);
    EXPECT_EQ(store.find(other).bytes, "two \"\xC3\xA9\"");
}

TEST(FileSecretStore, AFileThatCannotBeReadIsNotOneWithoutASecret) {
    const TemporaryFolder folder;
    for (const char* bytes : {"", R"({"secrets":[{"service":"a"}]})", "{\"secrets\":[\"\xff\"]}"}) {
        FileSecretStore store(folder.file("secrets.json", bytes));
        EXPECT_EQ(store.find(mine).status, SecretStatus::notText) << bytes;
        EXPECT_EQ(store.add(mine, "", "x"), SecretStatus::notText) << bytes;
        EXPECT_EQ(readWholeFile(folder / "secrets.json"), bytes);
    }
}

}  // namespace
}  // namespace vark
