// The ENML 2 DTD as tables: its elements with their attributes (XHTML 1.0 Transitional
// without id, class and the event handlers), which are empty, and the entities it declares.
#include <map>
#include <set>

#include "evernote/Enml.h"

namespace vxcloud::sandbox::evernote {
namespace {

using Names = std::vector<std::string_view>;

Names join(std::initializer_list<Names> groups) {
    Names out;
    for (const auto& group : groups) out.insert(out.end(), group.begin(), group.end());
    return out;
}

const Names kCore = {"style", "title"};
const Names kI18n = {"lang", "xml:lang", "dir"};
const Names kFocus = {"accesskey", "tabindex"};
const Names kAttrs = join({kCore, kI18n});
const Names kCellAlign = {"align", "char", "charoff", "valign"};

using Content = EnmlElement::Content;

std::map<std::string_view, EnmlElement> buildElements() {
    std::vector<EnmlElement> list = {
        {"en-note", Content::any, join({kAttrs, {"bgcolor", "text", "xmlns"}}), {}},
        {"en-media",
         Content::empty,
         join(
             {kAttrs,
              {"type", "hash", "height", "width", "usemap", "align", "border", "hspace", "vspace", "longdesc", "alt"}}),
         {"type", "hash"}},
        {"en-crypt", Content::text, {"hint", "cipher", "length"}, {}},
        {"en-todo", Content::empty, {"checked"}, {}},
        {"a",
         Content::any,
         join({kAttrs,
               kFocus,
               {"charset", "type", "name", "href", "hreflang", "rel", "rev", "shape", "coords", "target"}}),
         {}},
        {"area", Content::empty, join({kAttrs, kFocus, {"shape", "coords", "href", "nohref", "alt", "target"}}), {}},
        {"bdo", Content::any, join({kCore, kI18n}), {}},
        {"blockquote", Content::any, join({kAttrs, {"cite"}}), {}},
        {"br", Content::empty, join({kCore, {"clear"}}), {}},
        {"caption", Content::any, join({kAttrs, {"align"}}), {}},
        {"col", Content::empty, join({kAttrs, {"span", "width"}, kCellAlign}), {}},
        {"colgroup", Content::any, join({kAttrs, {"span", "width"}, kCellAlign}), {}},
        {"del", Content::any, join({kAttrs, {"cite", "datetime"}}), {}},
        {"div", Content::any, join({kAttrs, {"align"}}), {}},
        {"dl", Content::any, join({kAttrs, {"compact"}}), {}},
        {"font", Content::any, join({kCore, kI18n, {"size", "color", "face"}}), {}},
        {"hr", Content::empty, join({kAttrs, {"align", "noshade", "size", "width"}}), {}},
        {"img",
         Content::empty,
         join({kAttrs,
               {"src", "alt", "name", "longdesc", "height", "width", "usemap", "ismap", "align", "border", "hspace",
                "vspace"}}),
         {}},
        {"ins", Content::any, join({kAttrs, {"cite", "datetime"}}), {}},
        {"li", Content::any, join({kAttrs, {"type", "value"}}), {}},
        {"map", Content::any, join({kAttrs, {"name"}}), {}},
        {"ol", Content::any, join({kAttrs, {"type", "compact", "start"}}), {}},
        {"p", Content::any, join({kAttrs, {"align"}}), {}},
        {"pre", Content::any, join({kAttrs, {"width", "xml:space"}}), {}},
        {"q", Content::any, join({kAttrs, {"cite"}}), {}},
        {"table",
         Content::any,
         join({kAttrs,
               {"summary", "width", "border", "frame", "rules", "cellspacing", "cellpadding", "align", "bgcolor"}}),
         {}},
        {"tbody", Content::any, join({kAttrs, kCellAlign}), {}},
        {"td",
         Content::any,
         join({kAttrs,
               {"abbr", "axis", "headers", "scope", "rowspan", "colspan"},
               kCellAlign,
               {"nowrap", "bgcolor", "width", "height"}}),
         {}},
        {"tfoot", Content::any, join({kAttrs, kCellAlign}), {}},
        {"th",
         Content::any,
         join({kAttrs,
               {"abbr", "axis", "headers", "scope", "rowspan", "colspan"},
               kCellAlign,
               {"nowrap", "bgcolor", "width", "height"}}),
         {}},
        {"thead", Content::any, join({kAttrs, kCellAlign}), {}},
        {"tr", Content::any, join({kAttrs, kCellAlign, {"bgcolor"}}), {}},
        {"ul", Content::any, join({kAttrs, {"type", "compact"}}), {}},
    };
    for (std::string_view name : {"h1", "h2", "h3", "h4", "h5", "h6"}) {
        list.push_back({name, Content::any, join({kAttrs, {"align"}}), {}});
    }
    // Phrase and font-style elements with the common attributes only.
    for (std::string_view name :
         {"abbr", "acronym", "address", "b",     "big",  "center", "cite",   "code", "dd",  "dfn", "dt", "em", "i",
          "kbd",  "s",       "samp",    "small", "span", "strike", "strong", "sub",  "sup", "tt",  "u",  "var"}) {
        list.push_back({name, Content::any, kAttrs, {}});
    }
    std::map<std::string_view, EnmlElement> out;
    for (auto& element : list) out.emplace(element.name, std::move(element));
    return out;
}

const std::map<std::string_view, EnmlElement>& elements() {
    static const auto table = buildElements();
    return table;
}

// The XHTML character entities the DTD pulls in (Latin-1, symbols, special).
const char* const kEntities[] = {
    "nbsp",   "iexcl",   "cent",   "pound",  "curren", "yen",     "brvbar",   "sect",   "uml",    "copy",
    "ordf",   "laquo",   "not",    "shy",    "reg",    "macr",    "deg",      "plusmn", "sup2",   "sup3",
    "acute",  "micro",   "para",   "middot", "cedil",  "sup1",    "ordm",     "raquo",  "frac14", "frac12",
    "frac34", "iquest",  "Agrave", "Aacute", "Acirc",  "Atilde",  "Auml",     "Aring",  "AElig",  "Ccedil",
    "Egrave", "Eacute",  "Ecirc",  "Euml",   "Igrave", "Iacute",  "Icirc",    "Iuml",   "ETH",    "Ntilde",
    "Ograve", "Oacute",  "Ocirc",  "Otilde", "Ouml",   "times",   "Oslash",   "Ugrave", "Uacute", "Ucirc",
    "Uuml",   "Yacute",  "THORN",  "szlig",  "agrave", "aacute",  "acirc",    "atilde", "auml",   "aring",
    "aelig",  "ccedil",  "egrave", "eacute", "ecirc",  "euml",    "igrave",   "iacute", "icirc",  "iuml",
    "eth",    "ntilde",  "ograve", "oacute", "ocirc",  "otilde",  "ouml",     "divide", "oslash", "ugrave",
    "uacute", "ucirc",   "uuml",   "yacute", "thorn",  "yuml",    "fnof",     "Alpha",  "Beta",   "Gamma",
    "Delta",  "Epsilon", "Zeta",   "Eta",    "Theta",  "Iota",    "Kappa",    "Lambda", "Mu",     "Nu",
    "Xi",     "Omicron", "Pi",     "Rho",    "Sigma",  "Tau",     "Upsilon",  "Phi",    "Chi",    "Psi",
    "Omega",  "alpha",   "beta",   "gamma",  "delta",  "epsilon", "zeta",     "eta",    "theta",  "iota",
    "kappa",  "lambda",  "mu",     "nu",     "xi",     "omicron", "pi",       "rho",    "sigmaf", "sigma",
    "tau",    "upsilon", "phi",    "chi",    "psi",    "omega",   "thetasym", "upsih",  "piv",    "bull",
    "hellip", "prime",   "Prime",  "oline",  "frasl",  "weierp",  "image",    "real",   "trade",  "alefsym",
    "larr",   "uarr",    "rarr",   "darr",   "harr",   "crarr",   "lArr",     "uArr",   "rArr",   "dArr",
    "hArr",   "forall",  "part",   "exist",  "empty",  "nabla",   "isin",     "notin",  "ni",     "prod",
    "sum",    "minus",   "lowast", "radic",  "prop",   "infin",   "ang",      "and",    "or",     "cap",
    "cup",    "int",     "there4", "sim",    "cong",   "asymp",   "ne",       "equiv",  "le",     "ge",
    "sub",    "sup",     "nsub",   "sube",   "supe",   "oplus",   "otimes",   "perp",   "sdot",   "lceil",
    "rceil",  "lfloor",  "rfloor", "lang",   "rang",   "loz",     "spades",   "clubs",  "hearts", "diams",
    "quot",   "amp",     "lt",     "gt",     "apos",   "OElig",   "oelig",    "Scaron", "scaron", "Yuml",
    "circ",   "tilde",   "ensp",   "emsp",   "thinsp", "zwnj",    "zwj",      "lrm",    "rlm",    "ndash",
    "mdash",  "lsquo",   "rsquo",  "sbquo",  "ldquo",  "rdquo",   "bdquo",    "dagger", "Dagger", "permil",
    "lsaquo", "rsaquo",  "euro",
};

}  // namespace

const EnmlElement* enmlElement(std::string_view name) {
    const auto& table = elements();
    const auto it = table.find(name);
    return it == table.end() ? nullptr : &it->second;
}

const std::string& anyContentModel() {
    static const std::string model = [] {
        std::string out = "(#PCDATA";
        for (const auto& [name, element] : elements()) {
            if (name != "en-note") out += "|" + std::string(name);
        }
        return out + ")*";
    }();
    return model;
}

bool enmlEntity(std::string_view name) {
    static const std::set<std::string_view> entities(std::begin(kEntities), std::end(kEntities));
    return entities.count(name) > 0;
}

}  // namespace vxcloud::sandbox::evernote
