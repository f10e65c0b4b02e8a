// Sample source for the visible-text check: three joined sentences it must find (marked
// "found") among look-alikes it must leave alone.
QString sample(const QString &name, const QString &why)
{
    QString text = QStringLiteral("Recording stopped: ") + why;                              // found
    text = name + QStringLiteral(" disconnected — reconnecting…");                           // found
    text += QStringLiteral(" (question extended)");                                          // found
    text = tr("Now listening to %1 only.").arg(name);
    text += QStringLiteral("\n**You:** %1").arg(name);
    text = QStringLiteral("meeting_") + name + QStringLiteral(".events.jsonl");
    text = QStringLiteral("<div class=\"detail\">") + name + QStringLiteral("</div>");
    text = QStringLiteral("### ") + name + QStringLiteral("\n\n");
    qCInfo(lcUi).noquote() << QStringLiteral("[Ketterbloom] opened ") + name;
    // text-check: not visible (a settings key)
    text = QStringLiteral("window frame ") + name;
    return text;
}
