#pragma once
// The base of the CLI tests that run vxcloud against a vxcloud-sandbox process of their own:
// a private home pointed at that sandbox.
#include <gtest/gtest.h>

#include <string>

#include "cli/CliHarness.h"

namespace vxcloud::testing::cli {

class CliSandboxTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(sandbox_.ok()) << sandbox_.error();
        home_.setEnv("VXCLOUD_SANDBOX", sandbox_.baseUrl());
    }

    // The e-mail of the sandbox's `index`th seeded account of `service` ("" when it has fewer).
    std::string seededEmail(const std::string& service, std::size_t index) const {
        const auto accounts = sandbox_.accounts(service);
        return index < accounts.size() ? accounts[index]["email"].get<std::string>() : std::string();
    }

    void link(const std::string& service, const std::string& email) {
        const RunResult linked = home_.run({"link", service, "--as", email});
        ASSERT_EQ(linked.status, 0) << linked.out << linked.err;
    }

    SandboxProcess sandbox_;
    CliHome home_;
};

}  // namespace vxcloud::testing::cli
