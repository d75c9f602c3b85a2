#include "VarkPlatform/Linux/FileSecretStore.h"

#include <gtest/gtest.h>

#include "Tests/Support/AsAnOrdinaryUser.h"
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
    EXPECT_EQ(store.open(), SecretStatus::done);
    EXPECT_EQ(store.find(mine).status, SecretStatus::notFound);
    EXPECT_EQ(store.update(mine, "x"), SecretStatus::notFound);
    EXPECT_EQ(store.remove(mine), SecretStatus::notFound);
    EXPECT_FALSE(std::filesystem::exists(file));

    EXPECT_EQ(store.add(mine, "Label", "one"), SecretStatus::done);
    EXPECT_EQ(store.add(other, "", "two \"\xC3\xA9\""), SecretStatus::done);
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(store.update(mine, "three"), SecretStatus::done);
    EXPECT_EQ(FileSecretStore(file).find(mine).bytes, "three");
    EXPECT_EQ(store.find(other).bytes, "two \"\xC3\xA9\"");
    EXPECT_NE(readWholeFile(file).find(R"("label":"Label")"), std::string::npos);

    EXPECT_EQ(store.update(mine, "\xff"), SecretStatus::notText);
    EXPECT_EQ(store.find(mine).bytes, "three");
    EXPECT_EQ(store.remove(mine), SecretStatus::done);
    EXPECT_EQ(store.find(other).status, SecretStatus::done);
    EXPECT_EQ(store.remove(other), SecretStatus::done);
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(FileSecretStore, AFileThatCannotBeReadIsNotOneWithoutASecret) {
    const TemporaryFolder folder;
    for (const char* bytes :
         {"", "{", "[]", R"({"secrets":[{"service":"a"}]})", "{\"secrets\":[\"\xff\"]}"}) {
        FileSecretStore store(folder.file("secrets.json", bytes));
        EXPECT_EQ(store.find(mine).status, SecretStatus::notText) << bytes;
        EXPECT_EQ(store.add(mine, "", "x"), SecretStatus::notText) << bytes;
        EXPECT_EQ(readWholeFile(folder / "secrets.json"), bytes);
    }
    folder.file("taken/secrets.json/inside");
    FileSecretStore folderThere(folder / "taken/secrets.json");
    EXPECT_EQ(folderThere.find(mine).status, SecretStatus::failed);
}

TEST(FileSecretStore, ProvesBeforehandThatItCanBeWritten) {
    struct Case {
        const char* file;
        std::int32_t status;
    };
    const TemporaryFolder folder;
    folder.file("damaged/secrets.json", "{");
    folder.file("taken/secrets.json/inside");
    folder.file("file");
    std::filesystem::create_directory(folder / "closed");
    std::filesystem::permissions(folder.path(), std::filesystem::perms::all);
    std::filesystem::permissions(folder / "damaged", std::filesystem::perms::all);
    std::filesystem::permissions(folder / "closed", std::filesystem::perms(0555));
    const test::AsAnOrdinaryUser user;
    for (const Case& each :
         {Case{"new/secrets.json", SecretStatus::done}, Case{"damaged/secrets.json", SecretStatus::done},
          Case{"taken/secrets.json", SecretStatus::failed}, Case{"file/secrets.json", SecretStatus::failed},
          Case{"closed/secrets.json", SecretStatus::readOnly}}) {
        SCOPED_TRACE(each.file);
        FileSecretStore store(folder / each.file);
        EXPECT_EQ(store.open(), each.status);
        if (each.status != SecretStatus::done) {
            EXPECT_EQ(store.add(mine, "", "x"), each.status);
            EXPECT_TRUE(store.message(each.status));
        }
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder / "new"));
}

}  // namespace
}  // namespace vark
