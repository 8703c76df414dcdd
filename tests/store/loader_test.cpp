#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include <dirent.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "../common/files.h"
#include "store_fixture.h"

namespace {

// A scratch directory, removed with its files.
struct Scratch {
    std::string dir;
    Scratch() {
        char name[] = "/tmp/xpath-store-XXXXXX";
        dir = mkdtemp(name);
    }
    ~Scratch() { std::system(("rm -rf '" + dir + "'").c_str()); }
    std::string path(const char* name) const { return dir + "/" + name; }
    std::string write(const char* name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }
};

const std::string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

TEST(Loader, LoadFileOutcomes) {
    Scratch scratch;
    scratch.write("good.xml", "<a/>");
    scratch.write("empty.xml", "");
    scratch.write("bad.xml", "<a>");
    struct Case {
        std::string file;
        bool create, ok;
    } cases[] = {
        {scratch.path("good.xml"), false, true},
        {scratch.path("good.xml"), true, true},
        {scratch.path("empty.xml"), true, false},
        {scratch.path("bad.xml"), true, false},
        {scratch.dir, true, false},
        {scratch.path("missing.xml"), false, false},
        {scratch.path("missing.xml"), true, true},
        {"", true, true},
    };
    for (const Case& c : cases) {
        XMLLoader loader(c.file);
        EXPECT_EQ(loader.loadFile(c.create), c.ok) << c.file << " " << c.create;
        EXPECT_EQ(loader.saveFile(), c.ok && !c.file.empty()) << c.file;
    }
    EXPECT_EQ(readFile(scratch.path("missing.xml")), declaration);  // made by the save
}

TEST(Loader, AFailedLoadDropsTheDocument) {
    Scratch scratch;
    XMLLoader loader(scratch.write("f.xml", "<a>1</a>"));
    ASSERT_TRUE(loader.loadFile(false));
    std::remove(scratch.path("f.xml").c_str());
    EXPECT_FALSE(loader.loadFile(false));
    std::vector<std::string> values;
    EXPECT_TRUE(loader.getVector("/a", values));
    EXPECT_TRUE(values.empty());
    EXPECT_FALSE(loader.saveFile());
}

TEST(Loader, SaveRewritesInUtf8WithIndentation) {
    Scratch scratch;
    std::string file = scratch.write(
        "latin.xml", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<a>\n      <b>\xe9</b></a>");
    XMLLoader loader(file);
    ASSERT_TRUE(loader.loadFile(false));
    ASSERT_TRUE(loader.saveFile());
    EXPECT_EQ(readFile(file), declaration + "<a>\n  <b>\xc3\xa9</b>\n</a>\n");

    const char xml[] = "<other/>";
    ASSERT_TRUE(loader.loadArray(xml, sizeof xml - 1));
    ASSERT_TRUE(loader.saveFile());  // to the loader's file, not to any name in the text
    EXPECT_EQ(readFile(file), declaration + "<other/>\n");
    EXPECT_FALSE(loader.loadArray(xml, 0));
    EXPECT_FALSE(loader.saveFile());
    XMLLoader unnamed;
    EXPECT_TRUE(unnamed.loadFile(true));
    EXPECT_FALSE(unnamed.saveFile());
}

TEST(Loader, SaveMakesTheFileALinkPointsTo) {
    Scratch scratch;
    ASSERT_EQ(symlink("target.xml", scratch.path("link.xml").c_str()), 0);
    XMLLoader loader(scratch.path("link.xml"));
    ASSERT_TRUE(loader.loadFile(true));
    ASSERT_TRUE(loader.setOrCreateVector("/a", std::vector<std::string>{"v"}));
    EXPECT_TRUE(loader.saveFile());
    EXPECT_EQ(readFile(scratch.path("target.xml")), declaration + "<a>v</a>\n");
}

// How many names a directory holds.
std::size_t entries(const std::string& dir) {
    std::size_t n = 0;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* entry = readdir(d))
            n += std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0;
        closedir(d);
    }
    return n;
}

TEST(Loader, SaveKeepsWhatTheFileWas) {
    // Each name that reaches the file sees the new text; its mode, links and attributes stay,
    // and nothing else is left in the directory.
    enum Shape { plain, hardLinked, symlinked, attributed };
    for (Shape shape : {plain, hardLinked, symlinked, attributed}) {
        SCOPED_TRACE(shape);
        Scratch scratch;
        const std::string file = scratch.write("f.xml", "<a><b>old</b></a>");
        ASSERT_EQ(chmod(file.c_str(), 0640), 0);
        std::string name = file, other;
        bool made = true;
        if (shape == hardLinked)
            made = link(file.c_str(), (other = scratch.path("g.xml")).c_str()) == 0;
        if (shape == symlinked)
            made = symlink("f.xml", (name = scratch.path("l.xml")).c_str()) == 0;
        if (shape == attributed) made = setxattr(file.c_str(), "user.k", "v", 1, 0) == 0;
        if (!made) continue;  // not on this file system
        struct stat before, after;
        ASSERT_EQ(stat(file.c_str(), &before), 0);

        XMLLoader loader(name);
        ASSERT_TRUE(loader.loadFile(false));
        ASSERT_TRUE(loader.setOrCreateVector("/a/b", std::vector<std::string>{"new"}));
        ASSERT_TRUE(loader.saveFile());

        const std::string text = declaration + "<a>\n  <b>new</b>\n</a>\n";
        for (const std::string& each : {name, file, other}) {
            if (!each.empty()) {
                EXPECT_EQ(readFile(each), text) << each;
            }
        }
        ASSERT_EQ(stat(file.c_str(), &after), 0);
        EXPECT_EQ(after.st_mode, before.st_mode);
        EXPECT_EQ(after.st_nlink, before.st_nlink);
        struct stat linked;
        EXPECT_EQ(lstat(name.c_str(), &linked) == 0 && S_ISLNK(linked.st_mode), shape == symlinked);
        char value[2] = {};
        if (shape == attributed) {
            EXPECT_EQ(getxattr(file.c_str(), "user.k", value, 1), 1);
        }
        EXPECT_EQ(entries(scratch.dir), shape == plain || shape == attributed ? 1u : 2u);
    }
}

TEST(Loader, ReferenceCountStartsAndStopsTheLibraryOnce) {
    std::uint32_t before = XMLLoaderImpl::references;
    {
        XMLLoader first, second("x");
        XMLLoader copy(first);
        EXPECT_EQ(XMLLoaderImpl::references, before + 3);
        first = second;
        EXPECT_EQ(XMLLoaderImpl::references, before + 3);
    }
    EXPECT_EQ(XMLLoaderImpl::references, before);
    EXPECT_THROW(XMLLoader(static_cast<const char*>(nullptr)), std::logic_error);
    EXPECT_EQ(XMLLoaderImpl::references, before);
}

// The loader's document as saved, with the declaration and the layout taken out.
std::string saved(XMLLoader& loader, const Scratch& scratch) {
    if (!loader.saveFile()) return "(not saved)";
    std::string text = readFile(scratch.path("out.xml")), compact;
    for (std::size_t i = declaration.size(); i < text.size(); ++i) {
        if (text[i] != '\n') {
            compact += text[i];
            continue;
        }
        while (i + 1 < text.size() && text[i + 1] == ' ')
            ++i;
    }
    return compact;
}

TEST(Delete, ErasesWhatIsSelected) {
    Scratch scratch;
    for (const Row& row : readTable("delete.tsv")) {
        SCOPED_TRACE(row[0] + "  " + row[1]);
        XMLLoader loader(scratch.path("out.xml"));
        ASSERT_TRUE(loader.loadArray(row[0].c_str(), static_cast<unsigned int>(row[0].size())));
        EXPECT_EQ(loader.deletePath(row[1]), row[2] == "true");
        EXPECT_EQ(saved(loader, scratch), row[3]);
    }
    XMLLoader none;
    EXPECT_FALSE(none.deletePath("/a"));
}

TEST(Copy, CopiesAssignsAndComparesAsDocumented) {
    Scratch scratch;
    XMLLoader full(scratch.path("out.xml")), empty("other.xml"), none("x"), none2("y");
    const char xml[] = "<a><b>1</b></a>";
    ASSERT_TRUE(full.loadArray(xml, sizeof xml - 1));
    ASSERT_TRUE(empty.loadFile(true));

    XMLLoader copy(full);
    EXPECT_TRUE(copy == full);
    EXPECT_TRUE(none == none2);  // no documents: equal, whatever the names
    EXPECT_FALSE(none == full);
    EXPECT_FALSE(full == none);
    XMLLoader noneCopy(none);
    EXPECT_TRUE(noneCopy == none);
    EXPECT_FALSE(empty == full);  // the argument's text, the longer one, bounds the comparison
    EXPECT_TRUE(full == empty);   // the shorter text is a prefix of the other

    XMLLoader assigned("elsewhere");
    assigned = full;  // takes the name and the document's properties, not its content
    EXPECT_EQ(saved(assigned, scratch), "");
    EXPECT_TRUE(full == assigned);  // the argument's text bounds the comparison
    EXPECT_FALSE(assigned == full);
    assigned = assigned;
    EXPECT_TRUE(full == assigned);

    ASSERT_TRUE(copy.deletePath("/a/b"));  // the copy is deep: the source keeps its b
    EXPECT_EQ(saved(full, scratch), "<a><b>1</b></a>");
}

}  // namespace
