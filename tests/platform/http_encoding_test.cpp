#include <gtest/gtest.h>

#include <set>

#include "vxcloud/platform/Http.h"

using namespace vxcloud;

TEST(HttpHeadersTest, LookupIgnoresCaseAndSetReplacesEveryCopy) {
    HttpHeaders headers;
    headers.add("Set-Cookie", "a=1");
    headers.add("Content-Type", "text/plain");
    headers.add("set-cookie", "b=2");
    EXPECT_EQ(headers.get("SET-COOKIE"), "a=1");
    EXPECT_EQ(headers.all().size(), 3u);
    EXPECT_FALSE(headers.has("Content-Length"));

    headers.set("SET-cookie", "c=3");
    ASSERT_EQ(headers.all().size(), 2u);
    EXPECT_EQ(headers.all()[0].first, "Content-Type");
    EXPECT_EQ(headers.get("set-cookie"), "c=3");
}

TEST(HttpEncodingTest, UrlEncodeKeepsOnlyUnreservedCharacters) {
    EXPECT_EQ(HttpClient::urlEncode("AZaz09-._~"), "AZaz09-._~");
    EXPECT_EQ(HttpClient::urlEncode("a b+c&d=e/f?g#h%"), "a%20b%2Bc%26d%3De%2Ff%3Fg%23h%25");
    EXPECT_EQ(HttpClient::urlEncode("Résumé \"1\".pdf"), "R%C3%A9sum%C3%A9%20%221%22.pdf");
    EXPECT_EQ(HttpClient::urlEncode(std::string_view("\0\xff", 2)), "%00%FF");
}

TEST(HttpEncodingTest, UrlDecodeReversesEncodingAndKeepsMalformedEscapes) {
    const std::string text = "Dossier/Résumé & co = 100% \"fait\"+plus";
    EXPECT_EQ(HttpClient::urlDecode(HttpClient::urlEncode(text)), text);
    EXPECT_EQ(HttpClient::urlDecode("a%2fb%2Fc"), "a/b/c");
    EXPECT_EQ(HttpClient::urlDecode("a+b"), "a+b");
    EXPECT_EQ(HttpClient::urlDecode("100%"), "100%");
    EXPECT_EQ(HttpClient::urlDecode("%4"), "%4");
    EXPECT_EQ(HttpClient::urlDecode("%zz%41"), "%zzA");
}

TEST(HttpEncodingTest, FormEncodeJoinsEncodedPairs) {
    EXPECT_EQ(HttpClient::formEncode({}), "");
    EXPECT_EQ(HttpClient::formEncode({{"grant_type", "authorization_code"},
                                      {"redirect_uri", "http://127.0.0.1:8080/cb"},
                                      {"a&b", "c=d e"}}),
              "grant_type=authorization_code&redirect_uri=http%3A%2F%2F127.0.0.1%3A8080%2Fcb"
              "&a%26b=c%3Dd%20e");
}

TEST(MultipartBodyTest, EncodesRelatedPartsByteForByte) {
    MultipartBody body("related", "sep_9f1c2e7a5b3d");
    HttpHeaders metadata;
    metadata.add("Content-Type", "application/json; charset=UTF-8");
    body.addPart(metadata, ByteBuffer::copyOf(std::string_view(
                               R"({"name":"2024-05-01 Receipt.pdf","mimeType":"application/pdf","parents":["1AbCdEfGhIjK"]})")));
    HttpHeaders media;
    media.add("Content-Type", "application/pdf");
    body.addPart(media, ByteBuffer::copyOf(std::string_view("hello world")));

    EXPECT_EQ(body.contentType(), "multipart/related; boundary=sep_9f1c2e7a5b3d");
    const std::string expected =
        "--sep_9f1c2e7a5b3d\r\n"
        "Content-Type: application/json; charset=UTF-8\r\n"
        "\r\n"
        R"({"name":"2024-05-01 Receipt.pdf","mimeType":"application/pdf","parents":["1AbCdEfGhIjK"]})"
        "\r\n"
        "--sep_9f1c2e7a5b3d\r\n"
        "Content-Type: application/pdf\r\n"
        "\r\n"
        "hello world\r\n"
        "--sep_9f1c2e7a5b3d--\r\n";
    EXPECT_EQ(body.encode().toString(), expected);
    EXPECT_EQ(body.encode().toString(), expected);  // encoding does not consume the parts
}

TEST(MultipartBodyTest, FormFieldsAndFilesEscapeNamesAndKeepBinaryContent) {
    MultipartBody body("form-data", "B");
    body.addFormField("title", "Q3 \"final\"");
    const std::string binary("%PDF\0\r\n--B--\xff", 13);
    body.addFile("file\"x", "a\r\nb.pdf", "application/pdf", ByteBuffer::copyOf(binary));
    EXPECT_EQ(body.contentType(), "multipart/form-data; boundary=B");
    EXPECT_EQ(body.encode().toString(),
              "--B\r\nContent-Disposition: form-data; name=\"title\"\r\n\r\nQ3 \"final\"\r\n"
              "--B\r\nContent-Disposition: form-data; name=\"file%22x\"; filename=\"a%0D%0Ab.pdf\"\r\n"
              "Content-Type: application/pdf\r\n\r\n" +
                  binary + "\r\n--B--\r\n");

    EXPECT_EQ(MultipartBody("mixed", "E").encode().toString(), "--E--\r\n");
}

TEST(MultipartBodyTest, GeneratedBoundariesAreLongSafeAndDistinct) {
    std::set<std::string> seen;
    for (int i = 0; i < 50; ++i) {
        MultipartBody body("related");
        const std::string& boundary = body.boundary();
        EXPECT_GE(boundary.size(), 32u);
        EXPECT_LE(boundary.size(), 70u);  // RFC 2046 limit
        EXPECT_EQ(boundary.find_first_not_of(
                      "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz-"),
                  std::string::npos);
        EXPECT_EQ(body.contentType(), "multipart/related; boundary=" + boundary);
        seen.insert(boundary);
    }
    EXPECT_EQ(seen.size(), 50u);
}
