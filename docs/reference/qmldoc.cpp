// Writes one Markdown page per public type of the QML module Tavik, and an index, for
// Doxygen: the type's description and example (its doc comment), then its properties,
// signals and methods as the engine sees them (the module's registered type information,
// QML-declared members included), down to the first Qt type it derives from.
//
//   tavik_qmldoc SOURCE_DIR OUTPUT_DIR
//
// The public types are the qmldir's non-internal entries and the C++ types listed below.
// A type without a doc comment, or whose comment has no example, is an error: the
// reference must not silently lose a type's documentation.
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QMetaMethod>
#include <QMetaProperty>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QRegularExpression>
#include <QTextStream>
#include <cstdio>
#include <memory>

namespace {

// C++ types a host uses by name, with the header whose class comment documents them.
struct CppType {
  const char* name;
  const char* header;
};
const CppType kCppTypes[] = {
    {"TavikConfiguration", "src/views/qml_setup.h"},
    {"BannerAdRequest", "src/views/ad_request.h"},
    {"TavikAds", "src/views/ad_request.h"},
};

QString readFile(const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return {};
  return QString::fromUtf8(file.readAll());
}

// The `//` comment block above the root object of a QML file.
QString qmlComment(const QString& source) {
  QStringList lines;
  for (const QString& line : source.split('\n')) {
    if (line.startsWith(QStringLiteral("//"))) {
      lines << line.mid(line.startsWith(QStringLiteral("// ")) ? 3 : 2);
    } else if (!lines.isEmpty() && !line.trimmed().isEmpty()) {
      break;
    } else if (!lines.isEmpty()) {
      lines << QString();
    }
  }
  return lines.join('\n').trimmed();
}

// The `///` comment block right above `class NAME` in a header.
QString classComment(const QString& source, const QString& name) {
  const QStringList all = source.split('\n');
  for (int i = 0; i < all.size(); ++i) {
    if (!all[i].startsWith(QStringLiteral("class ") + name + QLatin1Char(' '))) continue;
    QStringList lines;
    for (int j = i - 1; j >= 0 && all[j].trimmed().startsWith(QStringLiteral("///")); --j) {
      QString text = all[j].trimmed().mid(3);
      lines.prepend(text.startsWith(' ') ? text.mid(1) : text);
    }
    return lines.join('\n').trimmed();
  }
  return {};
}

// Prose paragraphs and, from indented lines, one code block: the example.
struct Doc {
  QString prose;
  QString example;
};
Doc split(const QString& comment) {
  Doc doc;
  QStringList prose, example;
  for (const QString& line : comment.split('\n')) {
    if (line.startsWith(QStringLiteral("  "))) {
      example << line.mid(2);
    } else {
      prose << line;
    }
  }
  doc.prose = prose.join('\n').trimmed();
  doc.example = example.join('\n').trimmed();
  return doc;
}

// The QML name of a C++ type name: a registered element's or value type's name, else the
// basic types' QML names.
QString qmlTypeName(const QByteArray& cppName) {
  static const QHash<QByteArray, QString> basic = {{"QString", "string"},
                                                   {"bool", "bool"},
                                                   {"int", "int"},
                                                   {"double", "real"},
                                                   {"float", "real"},
                                                   {"qlonglong", "int"},
                                                   {"QUrl", "url"},
                                                   {"QColor", "color"},
                                                   {"QVariant", "var"},
                                                   {"QVariantList", "list"},
                                                   {"QPointF", "point"},
                                                   {"QSizeF", "size"},
                                                   {"QRectF", "rect"},
                                                   {"QStringList", "list<string>"},
                                                   {"QJSValue", "var"},
                                                   {"QQuickItem*", "Item"},
                                                   {"QQmlComponent*", "Component"},
                                                   {"QObject*", "QtObject"}};
  if (const auto it = basic.find(cppName); it != basic.end()) return *it;
  QByteArray bare = cppName;
  if (bare.endsWith('*')) bare.chop(1);
  const QMetaType type = QMetaType::fromName(bare);
  if (const QMetaObject* meta = type.metaObject()) {
    const int info = meta->indexOfClassInfo("QML.Element");
    if (info >= 0) return QString::fromUtf8(meta->classInfo(info).value());
  }
  const QString name = QString::fromUtf8(cppName);
  return name.mid(name.lastIndexOf(QStringLiteral("::")) + (name.contains("::") ? 2 : 0));
}

bool isQtClass(const QMetaObject* meta) {
  const QByteArray name = meta->className();
  return name.startsWith("QQuick") || name == "QObject";
}

QString signature(const QMetaMethod& method) {
  QStringList parameters;
  for (int i = 0; i < method.parameterCount(); ++i) {
    parameters << qmlTypeName(method.parameterTypeName(i)) + QLatin1Char(' ') +
                      QString::fromUtf8(method.parameterNames().value(i));
  }
  return QString::fromUtf8(method.name()) + QLatin1Char('(') +
         parameters.join(QStringLiteral(", ")) + QLatin1Char(')');
}

// The members the type adds above the first Qt class it derives from.
QString members(const QMetaObject* meta) {
  QStringList properties, signalList, methods;
  QSet<QString> notifiers;
  for (const QMetaObject* m = meta; m && !isQtClass(m); m = m->superClass()) {
    for (int i = m->propertyOffset(); i < m->propertyCount(); ++i) {
      const QMetaProperty p = m->property(i);
      if (p.hasNotifySignal()) notifiers.insert(QString::fromUtf8(p.notifySignal().name()));
      const QString type = p.isFlagType()   ? QStringLiteral("flags")
                           : p.isEnumType() ? QStringLiteral("enumeration")
                                            : qmlTypeName(p.typeName());
      properties << QStringLiteral("| `%1` | `%2` | %3 |")
                        .arg(QString::fromUtf8(p.name()), type,
                             p.isWritable() ? QStringLiteral("") : QStringLiteral("read-only"));
    }
  }
  for (const QMetaObject* m = meta; m && !isQtClass(m); m = m->superClass()) {
    for (int i = m->methodOffset(); i < m->methodCount(); ++i) {
      const QMetaMethod method = m->method(i);
      if (method.access() != QMetaMethod::Public) continue;
      const QString name = QString::fromUtf8(method.name());
      if (name.startsWith(QLatin1Char('_'))) continue;
      if (method.methodType() == QMetaMethod::Signal) {
        if (!notifiers.contains(name))
          signalList << QStringLiteral("- `%1`").arg(signature(method));
      } else {
        methods << QStringLiteral("- `%1`").arg(signature(method));
      }
    }
  }
  properties.sort();
  properties.removeDuplicates();
  signalList.removeDuplicates();
  methods.removeDuplicates();
  QString text;
  if (!properties.isEmpty()) {
    text += QStringLiteral("## Properties\n\n| name | type | |\n|---|---|---|\n") +
            properties.join('\n') +
            QStringLiteral(
                "\n\nEach writable property notifies its "
                "changes (`on<Name>Changed`).\n\n");
  }
  if (!signalList.isEmpty())
    text += QStringLiteral("## Signals\n\n") + signalList.join('\n') + "\n\n";
  if (!methods.isEmpty()) text += QStringLiteral("## Methods\n\n") + methods.join('\n') + "\n\n";
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication app(argc, argv);
  if (argc != 3) {
    std::fprintf(stderr, "usage: tavik_qmldoc SOURCE_DIR OUTPUT_DIR\n");
    return 2;
  }
  const QDir source(QString::fromLocal8Bit(argv[1]));
  QDir output(QString::fromLocal8Bit(argv[2]));
  output.mkpath(QStringLiteral("."));
  QQmlEngine engine;
  engine.addImportPath(QStringLiteral(TAVIK_QML_DIR));

  struct Page {
    QString name;
    QString comment;
    const QMetaObject* meta;
  };
  std::vector<Page> pages;
  std::vector<std::unique_ptr<QObject>> keep;  // the metaobjects of QML types live with them
  int errors = 0;
  const auto metaOf = [&](const QString& type) -> const QMetaObject* {
    QQmlComponent maker(&engine);
    maker.setData(("import Tavik\n" + type + " {}\n").toUtf8(), QUrl());
    QObject* object = maker.create();
    if (!object) {
      std::fprintf(stderr, "%s: %s\n", qPrintable(type), qPrintable(maker.errorString()));
      return nullptr;
    }
    keep.emplace_back(object);
    return object->metaObject();
  };

  const QString qmldir = readFile(QStringLiteral(TAVIK_QML_DIR "/Tavik/qmldir"));
  static const QRegularExpression entry(QStringLiteral("^([A-Z]\\w*) \\d+\\.\\d+ (\\S+)$"),
                                        QRegularExpression::MultilineOption);
  for (auto it = entry.globalMatch(qmldir); it.hasNext();) {
    const auto match = it.next();
    const QString name = match.captured(1);
    // Made first: that loads the module, whose library holds the sources.
    const QMetaObject* meta = metaOf(name);
    if (!meta) {
      ++errors;
      continue;
    }
    const QString text = readFile(QStringLiteral(":/qt/qml/Tavik/") + match.captured(2));
    pages.push_back({name, qmlComment(text), meta});
  }
  for (const CppType& type : kCppTypes) {
    const QString name = QString::fromUtf8(type.name);
    // Its C++ meta-object, by the registered type (making one could set the SDK up).
    const QMetaObject* meta =
        QMetaType::fromName(QByteArray("tavik::quick::") + type.name + '*').metaObject();
    if (!meta) {
      std::fprintf(stderr, "%s: no type information\n", type.name);
      ++errors;
      continue;
    }
    pages.push_back({name,
                     classComment(readFile(source.filePath(QString::fromUtf8(type.header))), name),
                     meta});
  }

  QString index = QStringLiteral(
      "# QML types {#qml_types}\n\n"
      "`import Tavik` (the QML module of `tavik::quick`). One page per public type, made "
      "from the module's type information and the types' doc comments by "
      "`docs/reference/qmldoc.cpp`.\n\n| type | |\n|---|---|\n");
  for (const Page& page : pages) {
    const Doc doc = split(page.comment);
    if (doc.prose.isEmpty() || doc.example.isEmpty()) {
      std::fprintf(stderr, "%s: its doc comment needs a description and an indented example\n",
                   qPrintable(page.name));
      ++errors;
    }
    const QString anchor = QStringLiteral("qml_") + page.name;
    QString text = QStringLiteral("# %1 {#%2}\n\n`import Tavik`\n\n").arg(page.name, anchor);
    text += doc.prose + QStringLiteral("\n\n## Example\n\n```qml\n") + doc.example +
            QStringLiteral("\n```\n\n") + members(page.meta);
    QFile file(output.filePath(page.name + QStringLiteral(".md")));
    if (!file.open(QIODevice::WriteOnly)) {
      ++errors;
      continue;
    }
    file.write(text.toUtf8());
    index += QStringLiteral("| @ref %1 \"%2\" | %3 |\n")
                 .arg(anchor, page.name, doc.prose.section('\n', 0, 0));
  }
  QFile file(output.filePath(QStringLiteral("index.md")));
  if (!file.open(QIODevice::WriteOnly)) return 1;
  file.write(index.toUtf8());
  std::printf("%zu QML type pages in %s\n", pages.size(), qPrintable(output.path()));
  return errors == 0 ? 0 : 1;
}
