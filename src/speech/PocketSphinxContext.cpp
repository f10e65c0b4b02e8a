// Context words for the PocketSphinx engine: the general language model mixed with an even
// unigram model of the rare words the user's documents mention.
#include "speech/PocketSphinxEngine.h"

#include "speech/SpeechLogging.h"

#include <QTemporaryFile>
#include <QTextStream>

#include <cmath>
#include <cstdlib>

#include <pocketsphinx.h>
#include <sphinxbase/ckd_alloc.h>
#include <sphinxbase/ngram_model.h>

namespace {

// The search the decoder builds from the model files, and ours with the context words.
constexpr const char *kGeneralSearch = "_default";
constexpr const char *kContextSearch = "kb-context";

} // namespace

void PocketSphinxEngine::applyContextWords()
{
    m_favouredCount = 0;
    // Only one search is kept (each holds tens of megabytes): the general one, or the mix.
    // The general model itself stays, retained here, to build the next mix or go back to.
    if (!m_generalLm) {
        ngram_model_t *general = ps_get_lm(m_decoder, kGeneralSearch);
        if (!general)
            return;
        m_generalLm = ngram_model_retain(general);
    }
    const auto useGeneral = [this] {
        if (ps_get_lm(m_decoder, kGeneralSearch))
            return;
        ps_set_lm(m_decoder, kGeneralSearch, m_generalLm);
        ps_set_search(m_decoder, kGeneralSearch);
        ps_unset_search(m_decoder, kContextSearch);
    };
    if (m_contextWords.isEmpty() || m_options.contextWeight <= 0) {
        useGeneral();
        return;
    }
    logmath_t *lmath = ps_get_logmath(m_decoder);

    QList<QByteArray> favoured;
    for (const QString &word : std::as_const(m_contextWords)) {
        const QByteArray utf8 = word.toUtf8();
        char *pronunciation = ps_lookup_word(m_decoder, utf8.constData());
        if (!pronunciation)
            continue; // no pronunciation: the decoder could never produce it
        ckd_free(pronunciation);
        const bool known = ngram_wid(m_generalLm, utf8.constData()) != ngram_unknown_wid(m_generalLm);
        if (known && logmath_exp(lmath, ngram_probv(m_generalLm, utf8.constData(), static_cast<char *>(nullptr)))
                         > m_options.contextCeiling)
            continue; // common already; favouring it would only dilute the rare ones
        favoured.append(utf8);
    }
    if (favoured.isEmpty()) {
        useGeneral();
        return;
    }

    // The unigram model goes through a file: that is the library's way to build one.
    QTemporaryFile arpa;
    if (!arpa.open()) {
        qCWarning(lcSpeech, "[Ketterbloom] context words not used: no temporary file (%s)", qPrintable(arpa.errorString()));
        useGeneral();
        return;
    }
    {
        QTextStream out(&arpa);
        const double logProbability = -std::log10(static_cast<double>(favoured.size()));
        out << "\\data\\\nngram 1=" << favoured.size() << "\n\n\\1-grams:\n";
        for (const QByteArray &word : std::as_const(favoured))
            out << QString::number(logProbability, 'f', 4) << ' ' << QString::fromUtf8(word) << '\n';
        out << "\n\\end\\\n";
    }
    arpa.close();
    ngram_model_t *context = ngram_model_read(nullptr, QFile::encodeName(arpa.fileName()).constData(), NGRAM_ARPA, lmath);
    if (!context) {
        qCWarning(lcSpeech, "[Ketterbloom] context words not used: their model could not be read");
        useGeneral();
        return;
    }
    ngram_model_t *models[] = {m_generalLm, context};
    char generalName[] = "general", contextName[] = "context";
    char *names[] = {generalName, contextName};
    const float32 weights[] = {static_cast<float32>(1.0 - m_options.contextWeight), static_cast<float32>(m_options.contextWeight)};
    ngram_model_t *mixed = ngram_model_set_init(nullptr, models, names, weights, 2);
    ngram_model_free(context);
    if (!mixed) {
        qCWarning(lcSpeech, "[Ketterbloom] context words not used: the models could not be mixed");
        useGeneral();
        return;
    }
    // The decoder's language weight and word insertion penalty apply to the mix as to the general model.
    cmd_ln_t *config = ps_get_config(m_decoder);
    ngram_model_apply_weights(mixed, cmd_ln_float32_r(config, "-lw"), cmd_ln_float32_r(config, "-wip"));
    // A mix in use is replaced by way of the general search, never while it is the current one.
    useGeneral();
    const int set = ps_set_lm(m_decoder, kContextSearch, mixed);
    ngram_model_free(mixed);
    if (set < 0 || ps_set_search(m_decoder, kContextSearch) < 0) {
        ps_set_search(m_decoder, kGeneralSearch);
        ps_unset_search(m_decoder, kContextSearch);
        qCWarning(lcSpeech, "[Ketterbloom] context words not used: the decoder refused them");
        return;
    }
    ps_unset_search(m_decoder, kGeneralSearch);
    m_favouredCount = static_cast<int>(favoured.size());
    qCInfo(lcSpeech, "[Ketterbloom] context words favoured: %d", m_favouredCount);
}
