#include "settings/InstructionsBuilder.h"

namespace {

const char16_t defaultPromptText[] =
    u"You are a live meeting assistant listening to a conversation in real time.\n"
    u"When a question is asked, answer it immediately, concisely and factually.\n"
    u"Ground every answer in the CONTEXT below when it is relevant; never invent\n"
    u"experience or facts that are not in the context. Prefer 2-5 short sentences\n"
    u"or a tight bullet list. Do not greet, do not narrate, do not restate the\n"
    u"question. If the audio is small talk rather than a question, reply with a\n"
    u"single short line of useful context or nothing at all.";

const char16_t tailorParagraph[] =
    u"Tailor every answer to this role: use the company's own vocabulary, and when a\n"
    u"question maps to a requirement above, connect it to concrete evidence from the\n"
    u"context documents. Never claim a requirement the context does not support.";

const char16_t panelGuidance[] =
    u"Read each person's seniority and discipline from their job title and pitch\n"
    u"accordingly, without being told which bucket they fall into:\n"
    u"- Executive / director / head-of titles: give the outcome, the commercial impact\n"
    u"  and the risk position in three or four sentences. No methodology tour, no tool\n"
    u"  names, no jargon unless they use it first.\n"
    u"- Manager / delivery / programme titles: give the delivery mechanics — programme,\n"
    u"  dependencies, stakeholders, how slippage was recovered — with moderate technical\n"
    u"  depth and named artefacts and cadences.\n"
    u"- Engineering / technical / specialist titles: give precise technical substance —\n"
    u"  the actual systems, standards, failure modes and trade-offs. Assume fluency and\n"
    u"  skip the framing.\n"
    u"- HR / talent / people titles: motivation, behaviour and fit in plain language,\n"
    u"  STAR shape, no acronyms.\n"
    u"- Client / stakeholder titles: confidence about outcomes and communication,\n"
    u"  benefits framed in their terms, no internal jargon.";

const char16_t workOutParagraph[] =
    u"Work out which of them a question came from and answer at their level:\n"
    u"scope, cost, risk and outcome questions come from the senior/commercial\n"
    u"side; questions about systems, standards or how something was actually\n"
    u"built come from the technical side. Keep answers shortest for the most\n"
    u"senior person.\n"
    u"";

const char16_t spansBothLine[] =
    u"When a question spans both, lead with the outcome in one or two plain sentences, then add a single layer of technical specifics for the more technical person — one answer, not two.";

const char16_t closingSection[] =
    u"=== EARLIER IN THIS MEETING ===\n"
    u"The questions already asked and the answers already given are in the\n"
    u"conversation history. Treat them as established: stay consistent with the\n"
    u"facts, figures and examples you have already used, do not repeat an answer\n"
    u"or an anecdote you have already given, and build on what has been said\n"
    u"rather than restarting. If a later question revisits earlier ground, add\n"
    u"what is new instead of restating it.";

QString text(const char16_t *literal)
{
    return QString::fromUtf16(literal);
}

} // namespace

QString InstructionsBuilder::defaultSystemPrompt()
{
    return text(defaultPromptText);
}

QString InstructionsBuilder::build(const Inputs &in)
{
    QString out = in.systemPrompt;

    QStringList role;
    if (!in.companyName.isEmpty())
        role.append(QStringLiteral("Company: ") + in.companyName);
    if (!in.roleTitle.isEmpty())
        role.append(QStringLiteral("Role: ") + in.roleTitle);
    if (!in.jobDescription.isEmpty())
        role.append(QStringLiteral("Job description:\n") + in.jobDescription);
    if (!role.isEmpty()) {
        out += QStringLiteral("\n\n=== ROLE UNDER DISCUSSION ===\n");
        out += role.join(QLatin1Char('\n'));
        out += QStringLiteral("\n\n");
        out += text(tailorParagraph);
    }

    QStringList panel;
    for (qsizetype i = 0; i < in.interviewers.size(); ++i) {
        const Interviewer &person = in.interviewers.at(i);
        if (!person.isBlank())
            panel.append(QStringLiteral("- ") + person.label(int(i)));
    }
    if (!panel.isEmpty()) {
        out += QStringLiteral("\n\n=== WHO IS INTERVIEWING ===\n");
        out += panel.join(QLatin1Char('\n'));
        out += QStringLiteral("\n\n");
        out += text(panelGuidance);
        out += QStringLiteral("\n\n");
        out += text(workOutParagraph);
        if (panel.size() > 1)
            out += text(spansBothLine);
    }

    if (!in.contextText.isEmpty()) {
        out += QStringLiteral("\n\n=== CONTEXT DOCUMENTS (about the user) ===\n");
        out += in.contextText;
    }

    out += QStringLiteral("\n\n");
    out += text(closingSection);

    const QStringList style = in.style.sentences();
    if (!style.isEmpty()) {
        out += QStringLiteral("\n\n");
        out += style.join(QLatin1Char('\n'));
    }
    return out;
}
