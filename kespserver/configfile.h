// SPDX-License-Identifier: Apache-2.0
#ifndef KESPSERVER_CONFIGFILE_H
#define KESPSERVER_CONFIGFILE_H

#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QVector>

namespace kesp {

/*
 * Every setting of nuvkesp-server, under the name of its environment
 * variable: the daemon's own (NUV_KESP_*), the broker link's (NUV_STOMP_*)
 * and the engine's (NUV_SERVER_*). The configuration file uses the same
 * names as keys, so a setting reads the same wherever it is written.
 */
struct SettingKey
{
    enum Kind { Text, Secret, Location, Number, Flag, OnOff };

    const char *variable;
    Kind kind;
    int minimum; // Number: the smallest value accepted
    const char *option; // the command-line option that sets it, or nullptr
    const char *valueName; // for --help
    const char *defaultValue; // nullptr: the reader's own default applies
    const char *help;
};

const QVector<SettingKey> &settingKeys();

/*
 * The effective settings and where each came from. Options win over
 * variables, variables over the file.
 */
class Settings
{
public:
    // Reads KEY = VALUE lines ('#' and ';' start comments). False with an
    // error naming the file and line of an unknown key or a bad value, and
    // for a file that holds a secret but can be read by anyone.
    bool loadFile(const QString &path, QString *error);
    // Takes the known variables of `environment` that are not empty.
    void takeEnvironment(const QProcessEnvironment &environment);
    void takeOption(const char *variable, const QString &value);
    // Checks every value against its kind; the error names its source.
    bool validate(QString *error) const;

    QString value(const char *variable) const;
    int number(const char *variable) const;
    bool isSet(const char *variable) const { return values.contains(QLatin1String(variable)); }
    // The effective values of every variable starting with `prefix`.
    QMap<QString, QString> withPrefix(const QString &prefix) const;
    // Sets the process environment to the effective values, for the parts
    // that read their settings from it (the engine).
    void exportToEnvironment(const QString &prefix) const;
    // One line per setting, "KEY = value  # source", secrets hidden.
    QString describe() const;

private:
    struct Value
    {
        QString text;
        QString source;
    };
    QMap<QString, Value> values;
};

} // namespace kesp

#endif // KESPSERVER_CONFIGFILE_H
