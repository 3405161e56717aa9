// The service registry: one entry per service, the words services are known by, and what
// the entries of services without a session or a sign-in make.
#include <gtest/gtest.h>

#include <set>

#include "vxcloud/auth/VXCloudAuthManager.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud {
namespace {

TEST(ServiceRegistry, EveryServiceHasExactlyOneEntryWithWordsOfItsOwn) {
    std::set<std::string_view> types, prefixes, icons, names;
    for (VXCloudService service : allCloudServices) {
        const VXCloudServiceDescriptor& entry = serviceDescriptor(service);
        SCOPED_TRACE(entry.typeWord);
        EXPECT_EQ(entry.service, service);
        EXPECT_TRUE(types.insert(entry.typeWord).second);
        EXPECT_TRUE(prefixes.insert(entry.keyPrefix).second);
        EXPECT_TRUE(icons.insert(entry.iconName).second);
        EXPECT_TRUE(names.insert(entry.displayName).second);
        EXPECT_EQ(displayName(service), entry.displayName);  // no catalog translates them here
        // A service that can be signed in to says which credentials it needs.
        if (entry.signIn) {
            EXPECT_FALSE(entry.credentials.empty());
        }
        // Every service has a clientId field or none at all.
        int ids = 0;
        for (const auto& field : entry.credentials) ids += field.role == VXCloudCredentialField::Role::clientId;
        EXPECT_EQ(ids, entry.credentials.empty() ? 0 : 1);
    }
    EXPECT_FALSE(types.count(""));
    // A value from an unchecked integer gets the empty entry, not a wild read.
    const auto& none = serviceDescriptor(static_cast<VXCloudService>(42));
    EXPECT_TRUE(none.typeWord.empty());
    EXPECT_FALSE(none.makeSession);
    EXPECT_FALSE(none.signIn);
    EXPECT_FALSE(serviceFromName(""));
}

TEST(ServiceRegistry, EveryNameFindsItsOwnServiceWhateverTheCaseAndPunctuation) {
    for (VXCloudService service : allCloudServices) {
        const VXCloudServiceDescriptor& entry = serviceDescriptor(service);
        SCOPED_TRACE(entry.typeWord);
        EXPECT_EQ(serviceFromName(entry.typeWord), service);
        EXPECT_EQ(cloudServiceFromType(accountType(service)), service);
        EXPECT_EQ(serviceFromName(entry.displayName), service);
        for (std::string_view name : entry.names) EXPECT_EQ(serviceFromName(name), service) << name;
    }
    EXPECT_EQ(serviceFromName("Google-Drive"), VXCloudService::googleDrive);
    EXPECT_EQ(serviceFromName("GDRIVE"), VXCloudService::googleDrive);
    EXPECT_EQ(serviceFromName("one drive"), VXCloudService::oneDrive);
    EXPECT_EQ(serviceFromName("ONE_NOTE"), VXCloudService::oneNote);
    EXPECT_EQ(serviceFromName("WebDav"), VXCloudService::webDAV);
    for (const char* unknown : {"drive", "google drive 2", "-", "icloud"}) EXPECT_FALSE(serviceFromName(unknown)) << unknown;
}

TEST(ServiceRegistry, EveryServiceWithASignInOffersItAndWebDAVUsesItsForm) {
    EXPECT_TRUE(offersSignIn(VXCloudService::dropbox));
    EXPECT_TRUE(offersSignIn(VXCloudService::googleDrive));
    EXPECT_TRUE(offersSignIn(VXCloudService::oneDrive));
    EXPECT_TRUE(offersSignIn(VXCloudService::box));
    EXPECT_TRUE(offersSignIn(VXCloudService::evernote));
    EXPECT_FALSE(offersSignIn(VXCloudService::webDAV));
    EXPECT_EQ(serviceDescriptor(VXCloudService::webDAV).linking, VXCloudLinking::accountForm);
}

TEST(ServiceRegistry, DefaultEndpointsComeFromTheEntries) {
    const auto google = VXCloudServiceConfig::defaultEndpoints(VXCloudService::googleDrive);
    EXPECT_EQ(google.tokenUrl, "https://oauth2.googleapis.com/token");
    EXPECT_EQ(google.extra.at("userinfo"), "https://openidconnect.googleapis.com/v1/userinfo");
    EXPECT_EQ(google.extra.size(), serviceDescriptor(VXCloudService::googleDrive).endpoints.extra.size());
    EXPECT_EQ(VXCloudServiceConfig::defaultEndpoints(VXCloudService::evernote).extra.at("userstore"),
              "https://www.evernote.com/edam/user");
    EXPECT_EQ(VXCloudServiceConfig::defaultEndpoints(VXCloudService::box).extra.at("revoke"), "https://api.box.com/oauth2/revoke");
}

TEST(ServiceRegistry, OnlyTheNamedServicesRefuseAutomaticUploadOrAllowOneAccount) {
    std::set<VXCloudService> refusing, single;
    for (VXCloudService service : allCloudServices) {
        if (noAutoUploadReason(service)) refusing.insert(service);
        if (serviceDescriptor(service).singleAccount) single.insert(service);
    }
    EXPECT_EQ(refusing, (std::set<VXCloudService>{VXCloudService::oneNote, VXCloudService::webDAV}));
    EXPECT_EQ(noAutoUploadReason(VXCloudService::oneNote), VXCloudString::ONENOTE_AUTOUPLOAD_INFO());
    EXPECT_EQ(single, (std::set<VXCloudService>{VXCloudService::oneDrive, VXCloudService::evernote}));
}

}  // namespace
}  // namespace vxcloud
