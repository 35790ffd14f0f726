// /ctx: users

import { object, texts } from '../values.js';

export const users = ({ store }) => ({
  '/ctx/:id/installs': {
    delete({ params, body }) {
      const user = store.user(params.id);
      // A device that is not known is already gone.
      texts(object(body).installs, 'installs').forEach((install) => user.installs.delete(install));
    },
  },
});
