package kestrin.profile;

import java.util.List;

/**
 * One of a profile's lists, as the service has it.
 *
 * @param id        the list's identifier; may be null
 * @param maxSize   how many entries the service keeps in it; null: it does not say
 * @param elements  in the service's order; null: the service sent no usable list, which is another
 *                  thing than an empty one
 */
public record UserProfile(String id, Long maxSize, List<UserProfileElement> elements) {
    static UserProfile read(WireReader reader) {
        return new UserProfile(
                reader.text(), reader.optionalNumber(), reader.all(UserProfileElement::read));
    }
}
