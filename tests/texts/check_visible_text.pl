#!/usr/bin/perl
# Visible text is written whole, through Qt's translation functions: a sentence with values
# is one tr() string with %1, %2 and .arg(), never pieces joined with +. This fails when a
# source of the session, review, ui or app library joins a literal that holds words to
# something else with + or +=, e.g. QStringLiteral("Recording stopped: ") + why.
#
# A literal counts as words when, without its markup tags and escapes, it has a word of two
# letters or more and a space. A whole line appended (text += QStringLiteral("... %1").arg(x))
# is not a piece. Log lines (qC*, qDebug, ...) are left alone. A line that
# builds something other than visible text this way says so with the marker
# "text-check: not visible" in a comment on that line or the one before.
#
# Usage: check_visible_text.pl SOURCE_DIR
use strict;
use warnings;
use File::Find;

binmode STDOUT, ":encoding(UTF-8)";
binmode STDERR, ":encoding(UTF-8)";

my $root = shift @ARGV or die "usage: $0 SOURCE_DIR\n";
my @libraries = qw(session review ui app);
# Sources converted on branches of their own; whoever merges the last of them empties this.
my %pending = map { $_ => 1 } qw(
    src/app/CommandLine.cpp
);

my $string = qr/"(?:[^"\\\n]|\\.)*"/;
my $strings = qr/$string(?:\s*$string)*/;
my $literal = qr/(?:\bQStringLiteral|\bQLatin1String(?:View)?|\bQString::fromUtf8|\bQString::fromLatin1|\btr|\bu)\s*\(\s*($strings)\s*\)/;
my $log = qr/\b(?:qC(?:Debug|Info|Warning|Critical)|qDebug|qInfo|qWarning|qCritical|qFatal)\b/;

sub words {
    my ($text) = @_;
    $text =~ s/"\s*"//g;                 # adjacent literals as one
    $text =~ s/^"|"$//g;
    $text =~ s/\\(?:u[0-9A-Fa-f]{4}|x[0-9A-Fa-f]+|.)/ /g;
    $text =~ s/<[^<>]*>//g;              # markup
    return $text =~ /[A-Za-z]{2}/ && $text =~ / /;
}

my @files;
for my $library (@libraries) {
    my $dir = "$root/src/$library";
    next unless -d $dir;
    find({ no_chdir => 1, wanted => sub { push @files, $_ if /\.(?:cpp|h)$/ } }, $dir);
}
die "check_visible_text: no sources under $root/src\n" unless @files;

my $found = 0;
for my $path (sort @files) {
    (my $relative = $path) =~ s{^\Q$root\E/}{};
    next if $pending{$relative};
    open(my $fh, '<:encoding(UTF-8)', $path) or die "$path: $!\n";
    my $source = do { local $/; <$fh> };
    close $fh;
    my @lines = split /\n/, $source, -1;
    while ($source =~ /(?<![+])\+=?\s*$literal|$literal\s*\+(?![+=])/g) {
        my ($text, $start, $end) = (defined $1 ? $1 : $2, $-[0], $+[0]);
        next unless words($text);
        next if substr($source, $end) =~ /^\s*\.arg\(/ && substr($source, $start, 1) eq '+';   # a whole line appended
        my $statement = substr($source, 0, $start);
        $statement =~ s/.*[;{}]//s;
        next if $statement =~ $log;
        my $line = (substr($source, 0, $start) =~ tr/\n//) + 1;
        my $context = join("\n", grep { defined } @lines[($line > 1 ? $line - 2 : 0) .. $line - 1]);
        next if $context =~ m{//.*text-check: not visible};
        print STDERR "$relative:$line: a sentence joined from pieces; write it as one tr() string with %1 and .arg():\n",
                     "    ", $lines[$line - 1] =~ s/^\s+//r, "\n";
        ++$found;
    }
}
if ($found) {
    print STDERR "check_visible_text: $found joined sentence(s)\n";
    exit 1;
}
printf "check_visible_text: %d sources, no sentence joined from pieces\n", scalar @files;
