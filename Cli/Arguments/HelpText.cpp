#include "Cli/Arguments/HelpText.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <utility>

namespace varo::cli {

namespace {

constexpr std::string_view kOverview =
    R"(Move files between this machine and the object service of a back end.

Usage: varobinary [GLOBAL] COMMAND [ARGUMENTS]

Commands:
  list URL [--criteria EXPR]     list the files of the service
  upload URL FILE                upload a file, or standard input with '-'
  download URL FILE_ID           download a file into the downloads directory
  update URL FILE_ID             change the metadata of a file
  delete URL FILE_ID             delete a file, or with --where several
  abort URL FILE_ID              give up an upload that was not finished
  blob download, path, delete    bring binary columns of an offline database's records
                                 into files, and manage these
  object get, put                bring single objects from and to an object store or a
                                 service, signed where it asks for that
  sandbox                        run a complete local back end to try things on
  demo                           see everything at work, with real files

URL is the base URL of the object service, without "/objects/File".
'varobinary COMMAND --help' tells all about a command.

Global options, before or after the command:
  --json                  print one JSON object a line on standard output, for scripts
  --home DIR              use DIR/Documents, DIR/Downloads and DIR/Library
                          (default: the directories of the desktop, such as ~/Downloads)
  --header 'NAME: VALUE'  send a request header; may be repeated
  --token T               send the authorization token T. Other users of this machine can
                          see it in the list of processes: prefer one of the next two
  --token-file FILE       take the token from the first line of FILE
  --option K=V            set an entry of the options dictionary; may be repeated.
                          true, false and whole numbers are typed, the rest is text
  --policy P              safe: whatever could lose data is an error (default)
                          compatible: behave as existing back ends and clients expect
  --cacert FILE           trust the certificates (PEM) in FILE as well
  --connect-timeout S     seconds until a connection stands (default 30)
  --stall-timeout S       seconds without a byte moving (default 60)
  --log-level L           trace, debug, info, warning (default), error, fatal or off; on
                          standard error. Without this option and --json, lines that the
                          command says in its own words anyway are left out
  -h, --help              show this help, or a command's
  --version               show the version

Environment:
  VARO_TOKEN              the authorization token, where no option gives one
  VARO_SECRET_KEY         the secret of the sandbox's object store, likewise
  NO_COLOR                set to anything: no colours

Exit status: 0 success, 1 the operation failed, 2 wrong usage, 130 interrupted.

First steps:
  varobinary demo
  varobinary sandbox --port 8080       # in one terminal; prints the URL to use
  varobinary upload URL photo.jpg      # in another
  varobinary list URL
)";

constexpr std::string_view kList =
    R"(List the files of an object service.

Usage: varobinary [GLOBAL] list URL [--criteria EXPR]

  URL                     base URL of the object service
  --criteria EXPR         list only what matches: comparisons "key eq 'value'", joined
                          with " and " (default: all files)

Prints a table and a total. On a terminal long values are shortened to its width;
anywhere else they are printed in full. With --json the line "success" has the records as
the service sent them.

Examples:
  varobinary list http://127.0.0.1:8080/services/data/v1/storage
  varobinary list $URL --criteria "file_namespace eq 'photos'"
  varobinary --json list $URL | jq -r '.result.records[].file_id'
)";

constexpr std::string_view kUpload =
    R"(Upload a file: create its record, send the bytes in chunks, commit.

Usage: varobinary [GLOBAL] upload URL FILE [--name N] [--namespace NS]
           [--security-key K] [--meta K=V]... [--chunk-size BYTES] [--raw]

  URL                     base URL of the object service
  FILE                    path of a file that is not empty, or '-' for standard input
                          (which is first copied to a temporary file)
  --name N                name on the service (default: last part of FILE, "stdin" for '-')
  --namespace NS          namespace of the file
  --security-key K        key that protects the file
  --meta K=V [K=V]...     further metadata, as text; may be repeated
  --chunk-size BYTES      bytes sent at once, such as 1048576, 512K or 4MiB
                          (default 1 MiB); a service may ask for one piece all the same
  --raw                   hand over the bytes instead of the path. With --policy compatible
                          the last chunk then carries the whole content again

Prints the id of the new file. Memory stays small for any size of file. An interrupted
upload leaves a record on the service that is not committed and is not listed.

Examples:
  varobinary upload $URL photo.jpg --namespace photos --meta camera=M6 place=Oslo
  tar cz documents | varobinary upload $URL - --name documents.tar.gz
  varobinary --token-file ~/.varo-token upload $URL report.pdf
)";

constexpr std::string_view kDownload =
    R"(Download a file into the downloads directory.

Usage: varobinary [GLOBAL] download URL FILE_ID [--namespace NS] [--security-key K]

  URL                     base URL of the object service
  FILE_ID                 id of the file, as 'list' and 'upload' print it
  --namespace NS          namespace of the file
  --security-key K        key that protects the file

The file is stored under the name that its record has, complete or not at all. A file of
that name that is there already is taken for the same one, and nothing is fetched; with
--option forceDownload=true it is fetched and replaced.

Examples:
  varobinary download $URL 5f2b90c1
  varobinary --home ./inbox download $URL 5f2b90c1
  varobinary --json download $URL 5f2b90c1 | jq -r '.result.filePath // empty'
)";

constexpr std::string_view kUpdate =
    R"(Change the metadata of a file. Its bytes stay as they are.

Usage: varobinary [GLOBAL] update URL FILE_ID [--meta K=V]...

  URL                     base URL of the object service
  FILE_ID                 id of the file, as 'list' and 'upload' print it
  --meta K=V [K=V]...     new metadata, as text; may be repeated

Examples:
  varobinary update $URL 5f2b90c1 --meta description='A summer evening' rating=5
)";

constexpr std::string_view kDelete =
    R"(Delete a file, or all files with certain metadata.

Usage: varobinary [GLOBAL] delete URL FILE_ID
       varobinary [GLOBAL] delete URL --where K=V [--where K=V]...

  URL                     base URL of the object service
  FILE_ID                 id of the file, as 'list' and 'upload' print it
  --where K=V [K=V]...    delete the files whose metadata hold all these values; may be
                          repeated. 'list --criteria' shows beforehand which ones they are

A service may accept a delete for later. It is then asked up to five times, with growing
pauses of 26 seconds at most together, whether it is done; each time that it is not, a line
on standard error says so. If it still works after that, the delete counts as failed,
although the service may finish it.

Examples:
  varobinary delete $URL 5f2b90c1
  varobinary delete $URL --where file_namespace=drafts owner=ann
)";

constexpr std::string_view kAbort =
    R"(Give up an upload: delete what the service has of a file that was not committed.

Usage: varobinary [GLOBAL] abort URL FILE_ID

  URL                     base URL of the object service
  FILE_ID                 id of the file, as the service gave it to the upload

To stop an upload that is running, interrupt it (Ctrl-C). The service then keeps a record that
no list shows until it is given up here. As with 'delete', the service may take a while.

Examples:
  varobinary abort $URL 5f2b90c1
)";

constexpr std::string_view kBlob =
    R"(Offline blobs: the binary columns of the records of an application's offline database,
kept in files of their own.

Usage: varobinary [GLOBAL] blob COMMAND --db NAME --table T --column C --key K=V... ...

Commands:
  blob download           bring the column of a record into a file, or go on with that
  blob path               print where the file is
  blob delete             record that the column is to be deleted

The database is the SQLite file WEBSQLDIRECTORY/NAME in the library directory: DIR/Library
with --home DIR, else ~/.local/share/varobinary. The table has a column blobref_C that links
each record to its blob.
'varobinary blob COMMAND --help' tells all about a command.
)";

constexpr std::string_view kBlobDownload =
    R"(Bring the binary column of a record into a file, or go on where an earlier run stopped.

Usage: varobinary [GLOBAL] blob download --db NAME --table T --column C --key K=V...
           --config FILE

  --db NAME               SQLite file below the library directory's WEBSQLDIRECTORY
  --table T               table of the record
  --column C              binary column; the table has a column blobref_C
  --key K=V [K=V]...      primary key of the record; may be repeated
  --config FILE           JSON object with the configuration of the download, as the library
                          takes it: "URL", "ScopeName", "ObjectName", "ChunkSize" (bytes of
                          a request), "Headers", "ResponseType" and so on. --header and the
                          token win over it

The file is blobs/ID in the documents directory. An interrupt (Ctrl-C) pauses the
download, and the same command goes on later, also after a crash. A blob that is there
already is not fetched again.

Examples:
  echo '{"URL":"http://127.0.0.1:8080/services/blobs/","ScopeName":"HR",
         "ObjectName":"employees","ChunkSize":1048576}' > photo.json
  varobinary --home try blob download --db staff.db --table employees --column photo \
      --key id=3 --config photo.json

'varobinary sandbox --port 8080 --example-db try/Library/WEBSQLDIRECTORY/staff.db' makes
what is needed to try this.
)";

constexpr std::string_view kBlobPath =
    R"(Print where the file of a record's binary column is.

Usage: varobinary [GLOBAL] blob path --db NAME --table T --column C --key K=V...

  --db NAME               SQLite file below the library directory's WEBSQLDIRECTORY
  --table T               table of the record
  --column C              binary column; the table has a column blobref_C
  --key K=V [K=V]...      primary key of the record; may be repeated

Fails while the file is not complete.

Examples:
  varobinary --home try blob path --db staff.db --table employees --column photo --key id=3
)";

constexpr std::string_view kBlobDelete =
    R"(Record that a record's binary column is to be deleted. The application's sync engine
deletes it on the service with its next session.

Usage: varobinary [GLOBAL] blob delete --db NAME --table T --column C --key K=V...
           [--before-sync]

  --db NAME               SQLite file below the library directory's WEBSQLDIRECTORY
  --table T               table of the record
  --column C              binary column; the table has a column blobref_C
  --key K=V [K=V]...      primary key of the record; may be repeated
  --before-sync           remove the file on this machine now, not after that session

Examples:
  varobinary --home try blob delete --db staff.db --table employees --column photo --key id=3 \
      --before-sync
)";

constexpr std::string_view kObject =
    R"(Single objects, straight from and to an object store or a service, without records
or a database. What is signed is signed with AWS Signature Version 4.

Usage: varobinary [GLOBAL] object COMMAND --config FILE ...

Commands:
  object get              bring an object into a file, or to standard output
  object put              send a file as a template of the service says

'varobinary object COMMAND --help' tells all about a command.
)";

constexpr std::string_view kObjectGet =
    R"(Bring an object into a file, or to standard output.

Usage: varobinary [GLOBAL] object get --config FILE [--param K=V]... [--options FILE]
           [--stream]

  --config FILE           JSON object with the configuration of the download, as the library
                          takes it: "endpointUrl" (or "domain" and "relativepath"),
                          "headers", "queryParams", "ChunkSize" (bytes of a request), and for
                          a store "Auth", "AuthParameters", "method" and "Host".
                          --header wins over "headers"
  --param K=V             file parameter; may be repeated. They fill the placeholders ${K} of
                          the configuration; "fileId" also names the download
  --options FILE          JSON object with the options dictionary. --option and the token
                          win over it
  --stream                write the bytes to standard output as they arrive, and nothing
                          else there. Excludes --json

The file is downloads/SECONDS_FILEID in the documents directory, with the slashes of FILEID
as %2F. It appears complete or not at all.
A key on the command line shows in the list of processes: keep keys in the configuration.
Blanks and the like in the name of a signed object are percent-encoded: a%20b.

Examples, in a shell where 'varobinary sandbox --store-port 8081' runs in another:
  echo '{"endpointUrl":"http://127.0.0.1:8081/${fileId}","Host":"127.0.0.1:8081",
         "method":"GET","Auth":"HMACDigest","AuthParameters":{"objectName":"${fileId}",
         "serviceName":"s3","regionName":"us-east-1","accessKeyID":"sandbox",
         "secretAccessKey":"sandbox-secret-key"}}' > get.json
  varobinary object get --config get.json --param fileId=photos/ann.jpg
  varobinary object get --config get.json --param fileId=backup.tar.gz --stream | tar tz
)";

constexpr std::string_view kObjectPut =
    R"(Send a file to where a template of the service says, signed if that asks for it.

Usage: varobinary [GLOBAL] object put --config FILE [--file PATH] [--options FILE]

  --config FILE           JSON object with the configuration of the upload, as the library
                          takes it: "URL" (who answers with the template), "FilePath",
                          "headers" of that request (--header wins over them), and
                          "uploadParams", which are posted to it, fill the template and hold
                          the keys of the signature
  --file PATH             the file, in place of "FilePath". It must not be empty
  --options FILE          JSON object with the options dictionary. --option and the token
                          win over it

The token of --token goes with a transfer that is not signed. To the service that has the
templates it goes with --header, or in "headers".

Examples, in a shell where 'varobinary sandbox --port 8080' runs in another:
  echo '{"URL":"http://127.0.0.1:8080/services/online/templates",
         "uploadParams":{"objectName":"photos/ann.jpg","regionName":"us-east-1",
         "accessKeyID":"sandbox","secretAccessKey":"sandbox-secret-key"}}' > put.json
  varobinary object put --config put.json --file ann.jpg
)";

constexpr std::string_view kSandbox =
    R"(Run a complete local back end: an object service, a blob service, templates of online
transfers, and an object store that checks signatures (AWS Signature Version 4).

Usage: varobinary [GLOBAL] sandbox [--port N] [--store-port N] [--data DIR]
           [--example-db FILE] [--token-required T] [--listen ADDRESS]
           [--object-store URL] [--access-key K] [--secret-key-file FILE] [--region R]
           [--allow-unsigned]

  --port N                port of the object and blob services (default: any free one)
  --store-port N          port of the object store (default: any free one)
  --data DIR              keep records and bytes in DIR and serve what is there already
                          (default: a temporary directory, removed at the end)
  --example-db FILE       make an SQLite database in FILE with a table of employees whose
                          photos the blob service has; one made before is used again
  --token-required T      refuse requests that do not carry the token T
  --listen ADDRESS        address to listen on (default 127.0.0.1, this machine only).
                          The sandbox is no server for others: mind who can reach it
  --object-store URL      templates point at this S3-compatible store instead of the
                          sandbox's own: scheme, host and port. Where a bucket stands in the
                          path, names of objects begin with it
  --access-key K          access key of the store (default: sandbox)
  --secret-key-file FILE  take its secret from the first line of FILE; default: the variable
                          VARO_SECRET_KEY, or sandbox-secret-key for the sandbox's own store
  --secret-key S          the secret. Other users of this machine can see it in the list of
                          processes
  --region R              region of the store (default us-east-1)
  --allow-unsigned        the sandbox's own store takes requests without a signature, too

Prints one line when it accepts connections, and runs until it is interrupted (Ctrl-C).
With --json the line is {"event":"ready","url":...,"blobUrl":...,"templateUrl":...,
"storeUrl":...}.

Examples:
  varobinary sandbox --port 8080
  varobinary sandbox --data ./back-end --token-required secret
  varobinary sandbox --example-db try/Library/WEBSQLDIRECTORY/staff.db
  varobinary sandbox --object-store https://s3.example.com --access-key K --secret-key-file s
)";

constexpr std::string_view kDemo =
    R"(Take a tour with real files: uploads of every kind, lists, metadata, downloads, deletes,
offline blobs of a real SQLite database, and signed transfers with an object store.

Usage: varobinary [GLOBAL] demo

Starts a sandbox of its own in a temporary directory, does everything that the library
does and checks each result, downloads byte by byte. It ends with a table of what was done,
removes what it made, and needs some seconds. The exit status is not 0 if anything was
wrong.

Examples:
  varobinary demo
  varobinary --log-level debug demo
)";

constexpr std::array<std::pair<std::string_view, std::string_view>, 16> kTexts = {{
    {"", kOverview},
    {"list", kList},
    {"upload", kUpload},
    {"download", kDownload},
    {"update", kUpdate},
    {"delete", kDelete},
    {"abort", kAbort},
    {"blob", kBlob},
    {"blob download", kBlobDownload},
    {"blob path", kBlobPath},
    {"blob delete", kBlobDelete},
    {"object", kObject},
    {"object get", kObjectGet},
    {"object put", kObjectPut},
    {"sandbox", kSandbox},
    {"demo", kDemo},
}};

}  // namespace

std::string helpText(std::string_view command) {
  const auto* text = std::find_if(kTexts.begin(), kTexts.end(),
                                  [&](const auto& entry) { return entry.first == command; });
  assert(text != kTexts.end());
  const bool isOverview = command.empty();
  return std::string(text->second) +
         (isOverview ? "" : "\nGlobal options: see 'varobinary --help'.\n");
}

std::string versionText() { return "varobinary " VARO_VERSION; }

}  // namespace varo::cli
