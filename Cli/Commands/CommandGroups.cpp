#include "Cli/Commands/CommandList.h"

namespace varo::cli {

namespace {

constexpr CommandGroup kBlob{
    .name = "blob",
    .summary =
        "bring binary columns of an offline database's records\ninto files, and manage these",
    .introduction =
        R"(Offline blobs: the binary columns of the records of an application's offline database,
kept in files of their own.

Usage: varobinary [GLOBAL] blob COMMAND --db NAME --table T --column C --key K=V... ...

Commands:
)",
    .closing = R"(
The database is the SQLite file WEBSQLDIRECTORY/NAME in the library directory: DIR/Library
with --home DIR, else ~/.local/share/varobinary. The table has a column blobref_C that links
each record to its blob.
'varobinary blob COMMAND --help' tells all about a command.
)"};

constexpr CommandGroup kObject{
    .name = "object",
    .summary =
        "bring single objects from and to an object store or a\nservice, signed where it asks for "
        "that",
    .introduction =
        R"(Single objects, straight from and to an object store or a service, without records
or a database. What is signed is signed with AWS Signature Version 4.

Usage: varobinary [GLOBAL] object COMMAND s3://BUCKET/KEY ...
       varobinary [GLOBAL] object get|put --config FILE ...

Commands:
)",
    .closing = R"(
'varobinary object COMMAND --help' tells all about a command.
)"};

}  // namespace

CommandSet commandSet() { return {{kBlob, kObject}, listedCommands()}; }

}  // namespace varo::cli
