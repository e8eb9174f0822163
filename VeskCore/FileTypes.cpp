#include "FileTypes.h"

namespace {

QSet<QString> words(const char *list)
{
    const QStringList split = QString::fromLatin1(list).split(u' ', Qt::SkipEmptyParts);
    return QSet<QString>(split.begin(), split.end());
}

} // namespace

namespace FileTypes {

const QSet<QString> &data()
{
    static const QSet<QString> set = words("csv tsv xlsx xls rds rdata rda");
    return set;
}

const QSet<QString> &viewer()
{
    static const QSet<QString> set =
        words("html htm xhtml pdf png jpg jpeg gif svg webp bmp tif tiff heic ico");
    return set;
}

const QSet<QString> &text()
{
    static const QSet<QString> set = words(
        "r rmd qmd rmarkdown rnw rhtml rd rprofile renviron rproj dcf md markdown txt text tex bib csl "
        "rst adoc org log json geojson yaml yml toml xml ini cfg conf env properties lock sh bash zsh py "
        "sql js mjs ts css scss less jl lua rb c cc cpp cxx h hpp f f90 f95 java go rs swift stan mk "
        "make cmake dockerfile gitignore gitattributes rbuildignore gitkeep");
    return set;
}

const QSet<QString> &external()
{
    static const QSet<QString> set =
        words("zip gz tgz bz2 xz 7z tar rar dmg pkg app exe dll so dylib o a rdb rdx doc docx ppt pptx odt "
              "ods odp pages numbers key xlsm xlsb mp3 mp4 m4a m4v mov avi mkv wav aiff flac ogg sav dta "
              "sas7bdat xpt por parquet feather arrow fst qs sqlite sqlite3 db duckdb h5 hdf5 nc mat npy npz "
              "pickle pkl ttf otf woff woff2 psd ai eps sketch");
    return set;
}

FileOpenRoute route(QStringView extension)
{
    const QString lower = extension.toString().toLower();
    if (data().contains(lower))
        return FileOpenRoute::importData;
    if (viewer().contains(lower))
        return FileOpenRoute::viewer;
    if (text().contains(lower))
        return FileOpenRoute::editor;
    if (external().contains(lower))
        return FileOpenRoute::external;
    return FileOpenRoute::sniff;
}

QString routeName(FileOpenRoute route)
{
    switch (route) {
    case FileOpenRoute::editor:
        return QStringLiteral("editor");
    case FileOpenRoute::viewer:
        return QStringLiteral("viewer");
    case FileOpenRoute::importData:
        return QStringLiteral("importData");
    case FileOpenRoute::external:
        return QStringLiteral("external");
    case FileOpenRoute::sniff:
        return QStringLiteral("sniff");
    }
    return {};
}

} // namespace FileTypes
