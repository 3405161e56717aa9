// OAuth 1.0a signing against the published examples: RFC 5849's signature base string
// (§3.4.1.1, with a repeated parameter, encoded names and values, a body parameter and the
// realm left out) and the photos example's HMAC-SHA1 signature, whose base string carries
// oauth_version.
#include <gtest/gtest.h>

#include "../../src/auth/OAuth1Signature.h"

namespace vxcloud::auth::oauth1 {
namespace {

TEST(OAuth1Signature, TheRfcBaseStringAndThePhotosSignatureAreReproduced) {
    const Parameters rfcParameters = {{"oauth_consumer_key", "9djdj82h48djs9d2"},
                                      {"oauth_token", "kkk9d7dh3k39sjv7"},
                                      {"oauth_signature_method", "HMAC-SHA1"},
                                      {"oauth_timestamp", "137131201"},
                                      {"oauth_nonce", "7d8f3e4a"},
                                      {"oauth_signature", "ignored"},
                                      {"realm", "Example"},
                                      {"c2", ""},
                                      {"a3", "2 q"}};
    EXPECT_EQ(signatureBaseString("post", "http://EXAMPLE.COM:80/request?b5=%3D%253D&a3=a&c%40=&a2=r%20b", rfcParameters),
              "POST&http%3A%2F%2Fexample.com%2Frequest&a2%3Dr%2520b%26a3%3D2%2520q%26a3%3Da%26b5%3D%253D%25253D%26c%2540%3D"
              "%26c2%3D%26oauth_consumer_key%3D9djdj82h48djs9d2%26oauth_nonce%3D7d8f3e4a%26oauth_signature_method%3DHMAC-SHA1"
              "%26oauth_timestamp%3D137131201%26oauth_token%3Dkkk9d7dh3k39sjv7");

    const Credentials photos{"dpf43f3p2l4k3l03", "kd94hf93k423kf44", "nnch734d00sl2jdk", "pfkkdhi9sl3r4s00"};
    const Parameters signedOnes =
        signedParameters("GET", "http://photos.example.net/photos?file=vacation.jpg&size=original", photos, {}, {},
                         "kllo9940pd9333jh", "1191242096");
    EXPECT_EQ(signedOnes.back(), (std::pair<std::string, std::string>{"oauth_signature", "tR3+Ty81lMeYAr/Fid0kMTYa/WM="}));

    // The header carries every protocol parameter, percent-encoded.
    const std::string header = authorizationHeader(signedOnes);
    EXPECT_EQ(header.rfind("OAuth ", 0), 0u);
    EXPECT_NE(header.find("oauth_signature=\"tR3%2BTy81lMeYAr%2FFid0kMTYa%2FWM%3D\""), std::string::npos) << header;
    EXPECT_NE(header.find("oauth_token=\"nnch734d00sl2jdk\""), std::string::npos) << header;

    // Base URIs: scheme and host lower-case, default ports dropped, others kept.
    EXPECT_EQ(baseStringUri("HTTPS://Www.Example.net:443/a/B?x=1#f"), "https://www.example.net/a/B");
    EXPECT_EQ(baseStringUri("http://127.0.0.1:8080"), "http://127.0.0.1:8080/");
}

}  // namespace
}  // namespace vxcloud::auth::oauth1
