// A host program built against the installed package: it must compile with only the installed
// headers, link with only the package's targets, and find the installed resource bundle.
#include <vxcloud/model/VXCloudFileHasher.h>
#include <vxcloud/platform/ResourceBundle.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    const std::string wantBundle = argc > 1 ? argv[1] : "";
    const auto digest = vxcloud::VXCloudFileHasher::md5Hash(vxcloud::ByteBuffer::copyOf(std::string_view("hello")));
    if (digest != "5d41402abc4b2a76b9719d911017c592") {
        std::fprintf(stderr, "wrong digest %s\n", digest.c_str());
        return 1;
    }
    const auto* bundle = vxcloud::ResourceBundle::vxcloud();
    if (!bundle || bundle->path() != wantBundle) {
        std::fprintf(stderr, "bundle %s, expected %s\n", bundle ? bundle->path().c_str() : "(none)", wantBundle.c_str());
        return 1;
    }
    std::puts("ok");
    return 0;
}
