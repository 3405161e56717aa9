#include "SamplePdf.h"

#include <cstdio>

namespace vxcloud::cli {

namespace {

// A PDF literal string: parentheses and backslashes escaped, printable ASCII only.
std::string pdfString(const std::string& text) {
    std::string out = "(";
    for (unsigned char c : text) {
        if (c == '(' || c == ')' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c >= 32 && c < 127) {
            out += static_cast<char>(c);
        } else if ((c & 0xC0) != 0x80) {
            out += '?';  // one mark per UTF-8 character
        }
    }
    return out + ")";
}

}  // namespace

std::string samplePdf(const std::vector<std::string>& lines) {
    std::string content = "BT\n/F1 20 Tf\n72 770 Td\n24 TL\n";
    for (std::size_t i = 0; i < lines.size(); ++i) {
        content += pdfString(lines[i]) + (i == 0 ? " Tj\n/F1 12 Tf\n18 TL\nT*\n" : " Tj\nT*\n");
    }
    content += "ET\n";

    const std::vector<std::string> objects = {
        "<< /Type /Catalog /Pages 2 0 R >>",
        "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Contents 4 0 R "
        "/Resources << /Font << /F1 5 0 R >> >> >>",
        "<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content + "endstream",
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>",
    };
    // The binary comment line marks the file as binary for tools that guess.
    std::string pdf = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
    std::vector<std::size_t> offsets;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        offsets.push_back(pdf.size());
        pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const std::size_t xref = pdf.size();
    pdf += "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (const std::size_t offset : offsets) {
        char entry[32];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", offset);
        pdf += entry;
    }
    pdf += "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " /Root 1 0 R >>\nstartxref\n" +
           std::to_string(xref) + "\n%%EOF\n";
    return pdf;
}

}  // namespace vxcloud::cli
