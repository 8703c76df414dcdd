// Uses the store as a library: load a document from memory, read, set, delete and save.
// Usage: store_demo <output file>

#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include <xpath/xmlloader.h>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: store_demo <output file>\n";
        return 1;
    }
    const char xml[] =
        "<shelf><book id='1'><title>Dune</title></book>"
        "<book id='2'><title>Emma</title></book></shelf>";
    XMLLoader shelf(argv[1]);  // the file that saveFile writes
    if (!shelf.loadArray(xml, std::strlen(xml))) return 1;

    std::vector<std::string> titles;
    shelf.getVector("/shelf/book/title", titles);
    for (const std::string& title : titles) std::cout << "title: " << title << '\n';

    // Missing nodes are made from the path: a third book, and an attribute on the first.
    bool ok = shelf.setOrCreateVector("/shelf/book[@id=\"3\"]/title",
                                      std::vector<std::string>{"Walden"}) &&
              shelf.setOrCreateVector("/shelf/book[@id=\"1\"]/@read",
                                      std::vector<std::string>{"yes"}) &&
              shelf.deletePath("/shelf/book[@id=\"2\"]") && shelf.saveFile();

    shelf.getVector("/shelf/book/@id", titles);
    std::cout << "ids:";
    for (const std::string& id : titles) std::cout << ' ' << id;
    std::cout << '\n';
    return ok ? 0 : 1;
}
