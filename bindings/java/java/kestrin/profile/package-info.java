/**
 * A household's profiles and lists over HTTP: the operations ({@link kestrin.profile.Household},
 * {@link kestrin.profile.Profile}), an outbox and a playback reporter. docs/java.md has a first
 * program.
 */
package kestrin.profile;
