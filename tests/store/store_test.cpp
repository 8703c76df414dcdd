// The store through its public API: operations on documents and their log lines, path
// splitting, limits, and the files that loaders read and write.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <filesystem>
#include <regex>

#include "../common/table.h"
#include "xmlloader.h"

namespace fs = std::filesystem;

namespace {

// A document from XML text ("": one with no root), and its root as compact text.
struct Doc {
    XMLLoaderImpl impl;
    explicit Doc(const std::string& xml) {
        impl.doc = xml.empty() ? xmlNewDoc(BAD_CAST "1.0")
                               : xmlParseMemory(xml.data(), static_cast<int>(xml.size()));
    }
    std::string text() const {
        xmlBufferPtr buffer = xmlBufferCreate();
        if (xmlNodePtr root = xmlDocGetRootElement(impl.doc)) xmlNodeDump(buffer, 0, root, 0, 0);
        std::string out(reinterpret_cast<const char*>(xmlBufferContent(buffer)));
        xmlBufferFree(buffer);
        return out;
    }
};

// Values apart by '|' ("(none)": no text), and back ("\"\"": empty); or each on a line.
std::vector<XString> xstrings(const std::string& field) {
    std::vector<XString> out;
    for (const std::string& v : parts(field))
        out.push_back(v == "(none)" ? XString() : XString(v));
    return out;
}
template <class T>
std::string joined(const std::vector<T>& values, bool lines = false) {
    std::string out;
    for (const T& value : values) {
        std::string v = XString(value).stringValue("");
        out += lines ? v + "\n" : (out.empty() ? "" : "|") + (v.empty() ? "\"\"" : v);
    }
    return out;
}

// What writeValues puts out for path; ok is what it returned.
std::string written(const XMLLoaderImpl& impl, const std::string& path, bool& ok) {
    return captured([&](std::FILE* out) { return impl.writeValues(XString(path), out); }, ok);
}

// The store's lines at the levels given, each its tag's letters, a blank and the text, apart
// by '|'; "...starting" and "...exiting" only if asked for.
struct StoreLog {
    std::ostringstream out;
    std::streambuf* console = std::cout.rdbuf(out.rdbuf());
    explicit StoreLog(unsigned int levels) {
        XMLLoader::getLogger().setClassLevel(LOG_LEVEL(levels), true);
    }
    ~StoreLog() {
        XMLLoader::getLogger().setClassLevel(LOG_SEVERE, true);
        std::cout.rdbuf(console);
    }
    std::string lines(bool entries = false) const {
        std::string all =
            std::regex_replace(out.str(), std::regex(R"(\[.*?\] +(\w+)\| (.*)\n)"), "$1 $2|");
        if (!entries) all = std::regex_replace(all, std::regex(R"(T \.\.\.\w+\|)"), "");
        return all.substr(0, all.size() - !all.empty());
    }
};

TEST(Store, ReadsSetsAndCreates) {
    for (unsigned int levels : {0u + LOG_SEVERE, 0u + LOG_ERROR + LOG_TRACE}) {
        for (const Row& row : readTable("store.tsv")) {
            SCOPED_TRACE(row[0] + "  " + row[1] + "  " + row[2] + "  " + row[3]);
            Doc doc(row[0]);
            StoreLog log(levels);  // no line changes a result
            const std::string before = doc.text(), op = row[1].substr(0, row[1].find(':'));
            const std::string option = row[1].substr(std::min(row[1].size(), op.size() + 1));
            std::vector<XString> values = xstrings(row[3]);
            std::string result = "false";
            if (op == "read") {  // appended by getVector; the typed read replaces what was there
                const unsigned int max = std::atoi(option.c_str());
                values.assign(1, XString("kept"));
                bool ok = doc.impl.getVector(XString(row[2]), values, max), wrote = ok;
                EXPECT_EQ(values[0].stringValue(""), "kept");
                values.erase(values.begin());
                result = ok ? joined(values) : "(fails)";
                XMLLoader loader;
                std::vector<std::string> typed{"stale", "stale"};
                loader.loadArray(row[0].c_str(), static_cast<unsigned int>(row[0].size()));
                EXPECT_EQ(loader.getVector(row[2], typed, max), ok);
                EXPECT_EQ(joined(typed), joined(values));
                if (max == 0) {  // all of them: the same values written out, and counted
                    EXPECT_EQ(written(doc.impl, row[2], wrote), joined(values, true));
                    EXPECT_EQ(wrote, ok);
                    EXPECT_EQ(doc.impl.countNodes(XString(row[2])), values.size());
                }
            } else if (op == "set") {
                std::vector<bool> flags(option.empty() ? values.size() : option.size(), true);
                for (std::size_t i = 0; i < option.size(); ++i)
                    flags[i] = option[i] == 'T';
                if (doc.impl.setOrCreateVector(XString(row[2]), values, flags)) result = "true";
            } else if (doc.impl.createNode(XString(row[2]))) {
                result = "true";
            }
            EXPECT_EQ(result, row[4]);
            EXPECT_EQ(doc.text(), row[5] == "=" ? before : row[5]);
        }
    }
}

// The pieces of a path: "(none)" a value with no text, "=" an output left as it was.
TEST(Store, SplitsPaths) {
    auto shown = [](const XString& s) {
        return s.blank() ? "(none)" : s.stringValue("") == "old" ? "=" : s.stringValue("");
    };
    for (const Row& row : readTable("split.tsv")) {
        XString parent("old"), last("old"), node("old"), name("old"), value("old");
        bool split = XMLLoaderImpl::splitPath(XString(row[0]), parent, last);
        bool condition = XMLLoaderImpl::splitCondition(XString(row[0]), node, name, value);
        EXPECT_EQ(Row({split ? "true" : "false", shown(parent), shown(last),
                       condition ? "true" : "false", shown(node), shown(name), shown(value)}),
                  Row(row.begin() + 1, row.end()))
            << row[0];
    }
}

TEST(Store, KeepsToWhatTheParserReadsBack) {
    StoreLog log(LOG_ERROR);
    Doc doc("<a/>");
    for (std::size_t more : {0, 1}) {  // the longest name and text, then a byte more
        XString name(std::string(50000 + more, 'n')), text(std::string(10000000 + more, 't'));
        EXPECT_EQ(doc.impl.setOrCreateVector("/a/" + name, {XString("v")}, {true}), !more);
        EXPECT_EQ(doc.impl.setOrCreateVector(XString("/a/t"), {text}, {true}), !more);
    }
    std::string path;  // 257 levels and no more, nor for a condition's child element
    for (int i = 0; i < 256; ++i)
        path += "/d";
    Doc deep("");
    EXPECT_TRUE(deep.impl.setOrCreateVector(XString(path + "/e"), {XString("v")}, {true}));
    EXPECT_FALSE(deep.impl.setOrCreateVector(XString(path + "/e/f"), {XString()}, {true}));
    EXPECT_FALSE(deep.impl.setOrCreateVector(XString(path + "/b[c=\"1\"]"), {XString()}, {true}));
    EXPECT_FALSE(Doc("").impl.setOrCreateVector(XString(path + path), {XString()}, {true}));
    EXPECT_EQ(deep.impl.countNodes(XString(path + "/*")), 1u);
    std::string big = "<a><b>" + std::string(70000, 'x') + "</b>";  // values past any block
    for (int i = 0; i < 9000; ++i)
        big += "<c>" + std::to_string(i) + "</c><![CDATA[&]]>";
    Doc large(big + "</a>");
    for (const char* read : {"/a", "/a/node()"}) {
        std::vector<XString> values;
        bool ok = large.impl.getVector(XString(read), values, 0);
        EXPECT_TRUE(ok && written(large.impl, read, ok) == joined(values, true));
    }
}

TEST(Store, LogsEachStepInOrder) {
    for (const Row& row : readTable("log.tsv")) {
        Doc doc(row[1]);
        StoreLog log(row[4] == "-" ? LOG_SEVERE : LOG_ERROR | (row[4][0] == 'T' ? 16u : 0u));
        std::vector<XString> values = xstrings(row[3]);
        if (row[0] == "set")
            doc.impl.setOrCreateVector(XString(row[2]), values,
                                       std::vector<bool>(values.size(), true));
        if (row[0] == "create") doc.impl.createNode(XString(row[2]));
        if (row[0] == "count") doc.impl.countNodes(XString(row[2]));
        if (row[0] == "read") doc.impl.getVector(XString(row[2]), values, 0);
        if (row[0] == "file") {  // loads the file named, fills it, deletes the value's path, saves
            XMLLoader loader(row[2]);
            loader.loadFile(true);
            loader.loadArray("<a><b/></a>", 11);
            loader.deletePath(row[3]);
            loader.saveFile();
        }
        EXPECT_EQ(log.lines(row[4].back() == '*'), row[5]) << row[0] << " " << row[2];
    }
}

TEST(Store, TheLibraryRunsFromTheFirstLoaderToTheLast) {
    StoreLog log(LOG_TRACE);
    auto loader = std::make_unique<XMLLoader>();
    { XMLLoader second, third(*loader); }  // gone while the first lives: the library stays
    EXPECT_EQ(log.lines(), "T First instance, initialising parser");
    ASSERT_TRUE(loader->loadArray("<a><b/></a>", 11));
    std::vector<std::string> values;
    EXPECT_TRUE(loader->setOrCreateVector("/a/b", std::vector<char*>{nullptr}) &&
                loader->setOrCreateVector("/a/c", std::vector<int>{42}) &&
                loader->getVector("/a/*", values) && joined(values) == "\"\"|42");
    loader.reset();
    const std::string all = log.lines();
    EXPECT_EQ(all.substr(all.find("Last instance") - 2), "T Last instance, cleaning up parser");
}

// A scratch directory of the test's own, and files in it.
struct Scratch {
    const fs::path dir = fs::temp_directory_path() / ("xpath-store-" + std::to_string(getpid()));
    Scratch() { fs::create_directories(dir); }
    ~Scratch() { fs::remove_all(dir); }
    std::string path(const std::string& name, const std::string& bytes = "(absent)") const {
        if (bytes != "(absent)") std::ofstream(dir / name, std::ios::binary) << bytes;
        return (dir / name).string();
    }
    long entries() const { return std::distance(fs::directory_iterator(dir), {}); }
};

// A saved file's text without its declaration, line ends and indentation.
std::string compact(const std::string& file) {
    std::string text = readFile(file), out;
    for (std::size_t i = text.find("?>\n") + 3; i < text.size(); ++i)
        if (text[i] == '\n')
            i = text.find_first_not_of(' ', i + 1) - 1;
        else
            out += text[i];
    return out;
}

TEST(Store, ErasesWhatIsSelected) {
    Scratch scratch;
    for (const Row& row : readTable("delete.tsv")) {
        XMLLoader loader(scratch.path("out.xml"));
        ASSERT_TRUE(loader.loadArray(row[0].c_str(), static_cast<unsigned int>(row[0].size())));
        EXPECT_EQ(loader.deletePath(row[1]), row[2] == "true") << row[0] << "  " << row[1];
        EXPECT_TRUE(loader.saveFile());
        EXPECT_EQ(compact(scratch.path("out.xml")), row[3]) << row[0] << "  " << row[1];
    }
    EXPECT_FALSE(XMLLoader().deletePath("/a"));
}

TEST(Loader, LoadsAndSaves) {
    Scratch scratch;
    XMLLoader unnamed, loader(scratch.path("f.xml", "<a>1</a>"));
    EXPECT_TRUE(unnamed.loadFile(true) && !unnamed.saveFile());
    ASSERT_TRUE(loader.loadFile(false));
    fs::remove(scratch.path("f.xml"));  // a failed load drops the document
    std::vector<std::string> values;
    EXPECT_FALSE(loader.loadFile(false) || loader.saveFile() || loader.loadArray("<a/>", 0));
    EXPECT_TRUE(loader.getVector("/a", values) && values.empty());
    EXPECT_FALSE(loader.setOrCreateVector("/a", std::vector<std::string>{"v"}));
    ASSERT_TRUE(loader.loadArray("<b/>", 4) && loader.saveFile());  // to the loader's file
    EXPECT_EQ(readFile(scratch.path("f.xml")),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<b/>\n");
    xmlSetCompressMode(1);  // a program's wish for compressed output, at its level
    bool saved = loader.saveFile();
    xmlSetCompressMode(0);
    std::string bytes = readFile(scratch.path("f.xml"));
    EXPECT_TRUE(saved && bytes.substr(0, 2) == "\x1f\x8b" && bytes[8] == 4);  // gzip, fastest
    EXPECT_TRUE(loader.loadFile(false) && loader.getVector("/b", values) && values.size() == 1);
    bytes = loader.saveFile() ? readFile(scratch.path("f.xml")) : "";  // read compressed: at 9
    EXPECT_TRUE(bytes.substr(0, 2) == "\x1f\x8b" && bytes[8] == 2);
    fs::resize_file(scratch.path("f.xml"), bytes.size() - 4);  // whole text, trailer cut: refused
    EXPECT_FALSE(loader.loadFile(false));
}

TEST(Loader, ReadsUnderTheProgramsParserSettings) {
    // Substitute entities, DTD bits, document, values ("-": refused), as a program sets them.
    Scratch scratch;
    const std::string dtd = scratch.path("d.dtd", "<!ATTLIST a k CDATA 'd' i ID #IMPLIED>");
    const std::string text = "<!DOCTYPE a SYSTEM '" + dtd + "' [<!ENTITY e '<b>x</b>'>]>";
    for (const Row& row : std::vector<Row>{{"1", "6", text + "<a i='n'>&e;</a>", "x|d|x"},
                                           {"1", "12", text + "<a i='n'>&e;</a>", "d|x"},
                                           {"0", "8", "<a>", "-"}}) {
        XMLLoader loader(scratch.path("f.xml", row[2]));
        xmlSubstituteEntitiesDefault(std::stoi(row[0]));
        xmlLoadExtDtdDefaultValue = std::stoi(row[1]);
        std::vector<std::string> values;
        bool ok = loader.loadFile(false) && loader.getVector("id('n')|/a/@k|/a/b", values);
        xmlSubstituteEntitiesDefault(xmlLoadExtDtdDefaultValue = 0);
        EXPECT_EQ(ok ? joined(values) : "-", row[3]);
    }
}

TEST(Loader, SaveKeepsWhatTheFileWas) {
    // Each name of the file sees the new text, shorter than the old; its mode, links and
    // attributes stay, and nothing else is left beside it.
    enum Shape { plain, hardLinked, symlinked, attributed, owned, dangling };
    for (Shape shape : {plain, hardLinked, symlinked, attributed, owned, dangling}) {
        SCOPED_TRACE(shape);
        Scratch scratch;
        const std::string file =
            scratch.path("f.xml", "<a><b>" + std::string(200, 'o') + "</b></a>");
        const std::string name =
            shape == symlinked || shape == dangling ? scratch.path("l.xml") : file;
        chmod(file.c_str(), 0640);
        if (shape == dangling) fs::remove(file);
        if (shape == hardLinked) link(file.c_str(), scratch.path("g.xml").c_str());
        if (name != file) symlink("f.xml", name.c_str());
        if (shape == attributed && setxattr(file.c_str(), "user.k", "v", 1, 0) != 0) continue;
        if (shape == owned && chown(file.c_str(), 65534, 65534) != 0) continue;  // not root
        XMLLoader loader(name);
        ASSERT_TRUE(loader.loadFile(true) &&
                    loader.setOrCreateVector("/a/b", std::vector<std::string>{"new"}) &&
                    loader.saveFile());
        for (std::string each : {"f.xml", "g.xml", "l.xml"}) {
            each = scratch.path(each);
            EXPECT_TRUE(!fs::exists(each) || compact(each) == "<a><b>new</b></a>") << each;
        }
        struct stat info;
        EXPECT_EQ(lstat(name.c_str(), &info) == 0 && S_ISLNK(info.st_mode), name != file);
        ASSERT_EQ(stat(file.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, shape == dangling ? 0666 & ~umask(022) : 0640);
        EXPECT_EQ(info.st_nlink, shape == hardLinked ? 2u : 1u);
        EXPECT_EQ(info.st_uid, shape == owned ? 65534 : getuid());
        EXPECT_EQ(getxattr(file.c_str(), "user.k", nullptr, 0), shape == attributed ? 1 : -1);
        EXPECT_EQ(scratch.entries(), name != file || shape == hardLinked ? 2 : 1);
    }
}

TEST(Loader, ASaveThatDoesNotFitLeavesTheFileAsItWas) {
    // The process's file size limit exactly the size of the text, then a byte less: by a new
    // file swapped in, in place (with a second hard link), and for a file not there yet.
    Scratch scratch;
    const std::string old = "<a>old</a>", file = scratch.path("f.xml", old);
    XMLLoader loader(file), fresh(scratch.path("new.xml"));
    ASSERT_TRUE(loader.loadFile(false) && loader.saveFile() && fresh.loadFile(true));
    const std::string text = readFile(file);
    struct rlimit unlimited, limit;
    getrlimit(RLIMIT_FSIZE, &unlimited);
    signal(SIGXFSZ, SIG_IGN);
    auto save = [&](XMLLoader& l, rlim_t size) {
        limit = {size, unlimited.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        bool saved = l.saveFile();
        setrlimit(RLIMIT_FSIZE, &unlimited);
        return saved;
    };
    for (bool linked : {false, true}) {
        if (linked) link(file.c_str(), scratch.path("g.xml").c_str());
        for (rlim_t size : {text.size(), text.size() - 1}) {
            std::ofstream(file, std::ios::binary) << old;
            bool saved = save(loader, size);
            EXPECT_EQ(saved, size == text.size()) << linked;
            EXPECT_EQ(readFile(file), saved ? text : old) << linked;
        }
    }
    EXPECT_FALSE(save(fresh, 10));  // a new file that doesn't fit: none is left
    EXPECT_EQ(scratch.entries(), 2);
}

TEST(Loader, AFullFileSystemLeavesTheFileAsItWas) {
    Scratch scratch;  // swapped in, in place (a second hard link), compressed: none fits
    if (mount("none", scratch.dir.c_str(), "tmpfs", 0, "size=256k") != 0) GTEST_SKIP();
    const std::string old = "<a><b>old</b></a>", file = scratch.path("f.xml", old);
    XMLLoader zipped(scratch.path("z.xml.gz"));
    xmlSetCompressMode(1);
    ASSERT_TRUE(zipped.loadArray(old.c_str(), old.size()) && zipped.saveFile());
    xmlSetCompressMode(0);
    const std::string packed = readFile(scratch.path("z.xml.gz"));
    std::ofstream(scratch.path("filler")) << std::string(1 << 20, 'x');  // as much as fits
    std::string big;  // letters that don't compress to nothing
    for (unsigned i = 1; big.size() < 1 << 16; i = i * 1103515245 + 12345)
        big += static_cast<char>('a' + (i >> 16) % 26);
    for (const std::string name : {"f.xml", "g.xml", "z.xml.gz"}) {
        if (name == "g.xml") link(file.c_str(), scratch.path(name).c_str());
        XMLLoader loader(scratch.path(name));
        ASSERT_TRUE(loader.loadFile(false) &&
                    loader.setOrCreateVector("/a/b", std::vector<std::string>{big}));
        EXPECT_FALSE(loader.saveFile());
        EXPECT_EQ(readFile(scratch.path(name)), name == "z.xml.gz" ? packed : old) << name;
    }
    EXPECT_EQ(scratch.entries(), 4);
    umount(scratch.dir.c_str());
}

TEST(Loader, CopiesAssignsAndCompares) {
    Scratch scratch;
    XMLLoader full(scratch.path("out.xml")), empty("other.xml"), none("x"), none2("y");
    ASSERT_TRUE(full.loadArray("<a><b>1</b></a>", 15) && empty.loadFile(true));
    XMLLoader copy(full), noneCopy(none), assigned("elsewhere");
    EXPECT_TRUE(copy == full && none == none2 && noneCopy == none && !(none == full) &&
                !(full == none));
    EXPECT_TRUE(full == empty && !(empty == full));  // the argument's text bounds the comparison
    assigned = full;  // the name and the document's properties, not its content
    assigned = assigned;
    EXPECT_TRUE(assigned.saveFile() && compact(scratch.path("out.xml")).empty());
    EXPECT_TRUE(full == assigned && !(assigned == full));
    EXPECT_TRUE(copy.deletePath("/a/b") && full.saveFile());  // a deep copy: the source keeps b
    EXPECT_EQ(compact(scratch.path("out.xml")), "<a><b>1</b></a>");
}

}  // namespace
